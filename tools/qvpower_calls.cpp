// Looks result codes up in the table built into the tool.
#include "qvpower_calls.h"

#include <nlohmann/json.hpp>

namespace qvpower {

namespace {

const nlohmann::json& Table() {
    // Parsed once; the text is part of the program, so a parse error is a
    // build fault that every run (and every test) shows at once.
    static const nlohmann::json table = nlohmann::json::parse(kResultCodesJson);
    return table;
}

}  // namespace

std::string CodeMeaning(std::string_view exportName, std::int32_t code) {
    const std::string key = std::to_string(code);
    const nlohmann::json& exports = Table().at("exports");
    const auto own = exports.find(std::string(exportName));
    if (own != exports.end() && own->contains(key)) return own->at(key).get<std::string>();
    const nlohmann::json& general = Table().at("general");
    if (general.contains(key)) return general.at(key).get<std::string>();
    return "a code " + std::string(exportName) + " is not documented to return";
}

std::vector<CodeEntry> CodeMeanings(std::int32_t code) {
    const std::string key = std::to_string(code);
    std::vector<CodeEntry> entries;
    const nlohmann::json& general = Table().at("general");
    if (general.contains(key)) entries.push_back({"", general.at(key).get<std::string>()});
    // nlohmann::json keeps object keys sorted: the exports come by name.
    for (const auto& [name, codes] : Table().at("exports").items())
        if (codes.contains(key)) entries.push_back({name, codes.at(key).get<std::string>()});
    return entries;
}

bool KnownExport(std::string_view exportName) {
    return Table().at("exports").contains(std::string(exportName));
}

std::string ExportFailure::Message() const {
    return exportName + "(" + arguments + ") returned " + std::to_string(code) + ": " +
           CodeMeaning(exportName, code);
}

}  // namespace qvpower
