// The process that talks to the broker. What a broker sends is a stranger's, and a search forks, so
// neither the library that reads it nor its thread has a place in the process of the watch.
#pragma once

#include <string>

#include "finder/broker/brokersettings.h"
#include "finder/source/sender.h"

namespace Lanscout {

// Publishes the letters that come in at the sender's descriptor, a line each, until that has an
// end; then says that the site is offline. Tells as notices, once each, why nothing can be
// published and that it can be again.
void RunPublisher(const BrokerSettings& broker, const std::string& site, Sender& sender);

}  // namespace Lanscout
