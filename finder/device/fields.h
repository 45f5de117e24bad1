// The one table of a device's fields. JSON, schema, table, plain lines, CSV, page, --sort, merging
// and comparing all come from it: a new field is a member of Device and a row in fieldlist.cpp.
#pragma once

#include <compare>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

using Json = nlohmann::ordered_json;

using FieldMember = std::variant<std::string Device::*, std::vector<std::string> Device::*,
                                 int Device::*, bool Device::*, Protocols Device::*, Kind Device::*,
                                 Reach Device::*, std::vector<Target> Device::*>;

// What becomes of two values of one device. An unknown one never replaces a known one.
enum class Merge {
    Ranked,      // the source that comes first in SourceId; within one source the longer text
    RankedLast,  // the source that comes last
    Larger,      // the larger, whoever says it
    Earliest,    // the smaller
    Both,        // all of both
};

enum class SortKind { Text, Number, Address };

// How wide a table's column is: cut to `least` columns where there is little room (0: not to be
// cut), and to `most` in any case (0: no limit).
struct Width {
    int least = 0;
    int most = 0;
};

// Which columns a narrow table leaves out: the highest rank first.
inline constexpr int kAlwaysInTable = 0;
inline constexpr int kNotInTable = -1;

struct Field {
    FieldMember member;
    const char* name;   // in JSON, as CSV heading, for --sort
    const char* title;  // as table heading
    Merge merge;
    bool reported;  // a change of it is news
    Width width;
    int rank;
    SortKind sort;
    bool csv;  // in CSV and plain lines too

    // What people see where it is not the bare value; null where it is.
    std::string (*shown)(const Device& device) = nullptr;
};

// In the order of the plain lines and the CSV: new ones go to the end.
std::span<const Field> Fields();

// The field of that name, or null.
const Field* FieldNamed(std::string_view name);

bool IsKnown(const Field& field, const Device& device);

// The bare value: lists with commas between, empty when unknown.
std::string FieldText(const Field& field, const Device& device);

// As people see it, empty when there is nothing to see. Not yet fit for a terminal.
std::string ShownText(const Field& field, const Device& device);

// Two values that one source has told, in whatever order: adds what `seen` knows to `known`.
void MergeSameSource(const Field& field, Device& known, const Device& seen);

// Adds what `next` knows to `known`, which comes first in the order of SourceId.
void MergeNextSource(const Field& field, Device& known, const Device& next);

Json FieldToJson(const Field& field, const Device& device);

// Takes what is of the right type, in reasonable numbers and lengths; the rest stays unknown.
void FieldFromJson(const Field& field, const Json& json, Device& device);

// The field's part of the JSON schema.
Json FieldSchema(const Field& field);

// Addresses and numbers by value, texts by bytes; unknown ones come last.
using SortKey = std::tuple<bool, std::uint64_t, std::string>;
SortKey SortKeyOf(const Field& field, const Device& device);

// By one field, equal ones by address.
void SortDevices(std::vector<Device>& devices, const Field& field);

// The names that --sort takes, and the CSV's heading.
std::vector<std::string> CsvNames();

}  // namespace Lanscout
