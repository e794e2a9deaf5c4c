#include "WebCsv.h"

#include <nlohmann/json.hpp>

namespace {

struct Column {
    const char* mpName;
    const char* mpPlace;  // in a record's JSON
};
constexpr Column sColumns[] = {{"id", "/id"},
                               {"first", "/first"},
                               {"last", "/last"},
                               {"kind", "/kind"},
                               {"category", "/category"},
                               {"subcategory", "/subcategory"},
                               {"occurrences", "/occurrences"},
                               {"open", "/open"},
                               {"host", "/host"},
                               {"fabric", "/fabric"},
                               {"initiator", "/initiator/port_name"},
                               {"initiator_name", "/names/initiator"},
                               {"initiator_switch_port", "/names/initiator_switch_port"},
                               {"remote_port", "/remote_port_name"},
                               {"remote_name", "/names/target"},
                               {"array", "/names/array"},
                               {"controller", "/names/controller"},
                               {"remote_switch_port", "/names/target_switch_port"},
                               {"target", "/target/port_name"},
                               {"incident", "/incident"},
                               {"window", "/window"},
                               {"event", "/event"},
                               {"data", "/data"}};

std::string sQuoted(const std::string& acrText) {
    std::string lText = "\"";
    for (const char lSign : acrText) {
        lText += lSign == '"' ? "\"\"" : std::string(1, lSign);
    }
    return lText += '"';
}

// Names come from outside, and a spreadsheet does what stands behind one of these signs.
bool sIsFormula(const std::string& acrText) {
    return !acrText.empty() && std::string_view("=+-@\t\r").find(acrText[0]) != std::string_view::npos;
}

std::string sCellOf(const nlohmann::ordered_json& acrValue) {
    if (acrValue.is_null()) {
        return "";
    }
    const std::string lText = acrValue.is_string() ? acrValue.get<std::string>() : acrValue.dump();
    const std::string lShown = sIsFormula(lText) ? "'" + lText : lText;
    return lShown.find_first_of(",\"\r\n") != std::string::npos ? sQuoted(lShown) : lShown;
}

}  // namespace

std::string webCsvHeading() {
    std::string lText;
    for (const Column& lrColumn : sColumns) {
        (lText += lText.empty() ? "" : ",") += lrColumn.mpName;
    }
    return lText += "\r\n";
}

std::string webCsvLineOf(const std::string& acrJson) {
    const auto lRecord = nlohmann::ordered_json::parse(acrJson);
    std::string lText;
    for (const Column& lrColumn : sColumns) {
        lText += &lrColumn == sColumns ? "" : ",";
        lText += sCellOf(
            lRecord.value(nlohmann::ordered_json::json_pointer(lrColumn.mpPlace), nlohmann::ordered_json()));
    }
    return lText += "\r\n";
}
