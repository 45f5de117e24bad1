// Names in XML namespaces.
#pragma once

#include <string>

namespace lansim {

// A name with the namespace that its prefix stood for.
struct QualifiedName {
    std::string uri;
    std::string local;
    bool operator==(const QualifiedName&) const = default;
};

}  // namespace lansim
