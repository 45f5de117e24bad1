// Finds UPnP root devices on one local IPv4 network (UPnP Device Architecture 1.0: SSDP search for
// upnp:rootdevice, then the description document over HTTP).
#pragma once

#include <pthread.h>

#include <set>
#include <string>

#include "utils/upnp16.h"

