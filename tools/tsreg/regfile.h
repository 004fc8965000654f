// The .reg text format ("Windows Registry Editor Version 5.00"), as the
// registry editor of Windows writes and reads it: UTF-16LE with a byte
// order mark and CR LF line ends; string data as "text", REG_DWORD as
// dword:xxxxxxxx, other types as hex(N):bytes (hex: for REG_BINARY), with
// the string types (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ) in UTF-16LE.
// Reading also takes the older REGEDIT4 form and 8-bit or UTF-8 files.
//
// Text inside the program is in the system's ANSI code page (GetACP), as
// the registry's A calls take it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tsreg {

// One line of a .reg file: a key to create or delete, or a value to set or
// delete under the key of the section it stands in.
struct RegEntry {
    enum Kind { Key, DeleteKey, Value, DeleteValue } kind = Key;
    std::string key;  // full path with the hive's long name
    std::string name; // value name; empty for the default value
    DWORD type = REG_NONE;
    std::string data; // the bytes as RegSetValueExA takes them
};

// Text of the ANSI code page to UTF-16LE bytes and back (units that the page
// lacks become '?').
std::string ansiToUtf16le(const std::string &ansi);
std::string utf16leToAnsi(const std::string &bytes);

// Appends one key section: "[key]" and then the values, each given as name,
// type and the bytes RegQueryValueExA gave.
class RegWriter {
public:
    RegWriter();
    void key(const std::string &path);
    void value(const std::string &name, DWORD type, const std::string &data);
    // The whole file as it goes to disk.
    std::string bytes() const;

private:
    std::string text_; // in the ANSI code page, with CR LF line ends
};

// True when a and b are the same text but for letter case, as registry
// names and the tool's own words compare.
bool sameText(const std::string &a, const char *b);

// Parses a whole file; false with a message naming the line on failure.
bool parseRegFile(const std::string &fileBytes, std::vector<RegEntry> &out, std::string &error);

} // namespace tsreg
