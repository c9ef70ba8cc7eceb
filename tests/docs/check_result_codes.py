#!/usr/bin/env python3
"""The header's doc comments and tools/result_codes.json tell the same story:
every export the table names is declared, and every code it gives an export is
mentioned in that export's documentation.

    check_result_codes.py HEADER RESULT_CODES_JSON
"""
import json
import re
import sys


def main(header_path, table_path):
    header = open(header_path, encoding="utf-8").read()
    table = json.load(open(table_path, encoding="utf-8"))
    docs = {m.group(2): m.group(1) for m in re.finditer(
        r"(/\*\*(?:(?!\*/).)*?\*/)\nQV_API int32_t (\w+)\(", header, re.S)}
    faults = []
    for export, codes in table["exports"].items():
        doc = docs.get(export)
        if doc is None:
            faults.append(f"{export}: in the table, not documented in the header")
            continue
        text = doc.split("@param")[0]
        for code in codes:
            if code != "1" and not re.search(r"(?<![\d-])%s(?!\d)" % re.escape(code), text):
                faults.append(f"{export}: code {code} ({codes[code]}) not in its documentation")
    for general in table["general"]:
        if not re.search(r"#define QV_\w+ \(?%s\)?\s" % re.escape(general), header):
            faults.append(f"general code {general} has no QV_ macro")
    for fault in faults:
        print(fault)
    print(f"{len(table['exports'])} exports checked, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
