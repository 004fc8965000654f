// The .reg text format, as the registry editor of Windows writes and reads
// it: "Windows Registry Editor Version 5.00" in UTF-16LE with a byte order
// mark and CR LF line ends, string data as "text" with \ and " escaped,
// REG_DWORD as dword:xxxxxxxx, other types as hex(N):bytes (hex: for
// REG_BINARY), the string types' bytes in UTF-16LE; and the older
// "REGEDIT4", in the ANSI code page (GetACP), whose hex(N) bytes of the
// string types are in that code page too.
//
// Reading takes either header in UTF-16LE (with its byte order mark) or
// UTF-8 (with or without one); a file without a byte order mark that starts
// "REGEDIT4" is read in the ANSI code page. Anything not understood (a line
// of no known form, an unknown escape in a string, text that is not valid in
// its encoding) refuses the whole file with the line's number.
//
// Names and keys inside the program are UTF-8.
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
    std::string data; // the bytes as RegSetValueExW takes them
};

// Appends key sections: "[key]" and then the values, each given as name,
// type and the bytes RegQueryValueExW gave. Text that the file's form
// cannot hold exactly is refused (false with a message naming it).
class RegWriter {
public:
    explicit RegWriter(bool regedit4 = false);
    bool key(const std::string &path, std::string &error);
    bool value(const std::string &name, DWORD type, const std::string &data, std::string &error);
    // The whole file as it goes to disk.
    std::string bytes() const;

private:
    bool hexLine(std::string line, DWORD type, const std::string &bytes);

    bool regedit4_;
    std::string text_; // UTF-8 with CR LF line ends
};

// Parses a whole file; false with a message naming the line on failure.
bool parseRegFile(const std::string &fileBytes, std::vector<RegEntry> &out, std::string &error);

} // namespace tsreg
