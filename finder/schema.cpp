#include "finder/schema.h"

#include "finder/device/devicejson.h"

namespace Lanscout {

Json FillSchema(Json frame) {
    Json reported = Json::array();
    for (const Field& field : Fields()) {
        if (field.reported) {
            reported.push_back(field.name);
        }
    }
    frame["$defs"]["device"] = DeviceSchema();
    frame["$defs"]["changes"]["items"]["properties"]["field"]["enum"] = std::move(reported);
    return frame;
}

}  // namespace Lanscout
