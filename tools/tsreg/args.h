// tsreg's command line (UTF-8, see console.h) and what it names: the options, the key, the type
// and the data of "add". Reading them calls nothing of the registry, so
// the fuzzers call it in-process.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tsreg {

struct Args {
    std::vector<std::string> positional;
    bool hasValue = false, defaultValue = false, allValues = false, recurse = false, force = false;
    std::string valueName, type, data, separator = "\\0";
    bool hasType = false, hasData = false;
    bool regedit4 = false; // export /a: a REGEDIT4 file in the ANSI code page
};

// The words after the operation (argv[2] on); /s is the separator of
// "add" when separatorOption, else "recurse". False with a message when
// an option lacks its argument.
bool parseArgs(int argc, const char *const *argv, bool separatorOption, Args &a, std::string &error);

// Splits ROOT\Path; false for an unknown root or a remote machine.
// display is the key with the root's long name.
bool parseKey(const std::string &keyText, HKEY &hive, std::string &sub, std::string &display, std::string &error);

// A registry type's name ("REG_SZ"), or its number in hexadecimal.
std::string typeName(DWORD type);

// The type and bytes that "add" writes for /t, /d and /s, as
// RegSetValueExW takes them (text of the string types and REG_NONE in
// UTF-16LE); false with a message when they do not fit together.
bool makeData(const Args &a, DWORD &type, std::string &data, std::string &error);

} // namespace tsreg
