// The JSON schema of a result.
#pragma once

#include "finder/device/fields.h"

namespace Lanscout {

// `frame` is finder/lanscout.schema.json.in: everything but what the table of fields says.
Json FillSchema(Json frame);

}  // namespace Lanscout
