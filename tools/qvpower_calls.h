// The exports qvpower calls, seen from the tool: what each result code means
// for the export that returned it, and the failure that carries a refused call
// out of a command.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace qvpower {

// tools/result_codes.json as it was when the tool was built.
extern const char kResultCodesJson[];

// What `code` means when `exportName` returns it: the export's own entry of
// the table, else the code's general meaning, else a note that the export is
// not known to return it.
std::string CodeMeaning(std::string_view exportName, std::int32_t code);

// Every meaning the table gives `code`: the general one first (export name
// empty), then each export's own, by export name. Empty when none.
struct CodeEntry {
    std::string exportName;
    std::string meaning;
};
std::vector<CodeEntry> CodeMeanings(std::int32_t code);

// True when the table has an entry for the export.
bool KnownExport(std::string_view exportName);

// An export refused: which one, called how, and with what result.
struct ExportFailure {
    std::string exportName;
    std::string arguments;  // as written in the call, e.g. "\"AB1234\", 5"
    std::int32_t code = 0;

    // QV_GetIndex_SN("ZZ") returned -2: not a valid serial number ...
    std::string Message() const;
};

// An output argument, written as "&name".
struct Out {
    const char* name;
};

// The arguments of a call as C would write them: texts quoted, numbers plain.
inline void AppendArgument(std::ostringstream& out, Out pointer) { out << '&' << pointer.name; }
inline void AppendArgument(std::ostringstream& out, const std::string& text) { out << '"' << text << '"'; }
inline void AppendArgument(std::ostringstream& out, const char* text) { out << '"' << text << '"'; }
template <class Number>
void AppendArgument(std::ostringstream& out, Number number) { out << number; }

template <class... Values>
std::string Arguments(const Values&... values) {
    std::ostringstream out;
    const char* separator = "";
    ((out << separator, AppendArgument(out, values), separator = ", "), ...);
    return out.str();
}

// `code` when it is what the export gives on success (1 unless `expected` says
// otherwise); otherwise throws the ExportFailure of the call.
inline std::int32_t Expect(const char* exportName, std::int32_t code, std::string arguments,
                           std::int32_t expected = 1) {
    if (code != expected) throw ExportFailure{exportName, std::move(arguments), code};
    return code;
}

}  // namespace qvpower
