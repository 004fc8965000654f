// Windows path translation: any string translates or fails with a Win32
// error, and a path on drive C: never leaves the drive's folder, neither
// by ".." nor through drive_c\out, a symbolic link to the folder above
// the machine root. Translating as written and matching case afterwards
// comes to the same.
#include <windows.h>

#include "FuzzSupport.h"
#include "machineroot.h"

#include "winpath.h"

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static tsfuzz::ScratchRoot scratch;
    static const std::string drive = tsp::machineRoot() + "/drive_c", link = drive + "/out";
    static const int linked = mkdir(drive.c_str(), 0755) || symlink("../..", link.c_str());
    if (linked != 0)
        abort();
    std::string text(reinterpret_cast<const char *>(data), size);
    text = text.substr(0, text.find('\0'));

    std::string out;
    DWORD eager = tsp::translateWindowsPath(text.c_str(), out);
    if (eager == 0)
        tsp::windowsFormOf(out);

    // Translated as written, with the case matched afterwards, the text
    // gives the same path, or the same error.
    std::string asWritten;
    size_t caseBase = 0;
    if (tsp::translateWindowsPathAsWritten(text.c_str(), asWritten, caseBase) != eager)
        abort();
    tsp::matchCaseBelow(caseBase, asWritten);
    if (eager == 0 && asWritten != out)
        abort();

    // The same text on drive C: stays below drive_c, with "." and ".."
    // resolved by name.
    std::string onC = "c:\\" + text;
    DWORD error = tsp::translateWindowsPath(onC.c_str(), out);
    if (error == ERROR_ACCESS_DENIED)
        return 0;
    if (error != 0)
        abort(); // drive C: always exists
    if (out.compare(0, drive.size(), drive) != 0 || (out.size() > drive.size() && out[drive.size()] != '/'))
        abort();
    if (out.compare(0, link.size(), link) == 0 && (out.size() == link.size() || out[link.size()] == '/'))
        abort();
    for (size_t at = out.find("/.."); at != std::string::npos; at = out.find("/..", at + 1)) {
        if (at + 3 == out.size() || out[at + 3] == '/')
            abort();
    }
    return 0;
}
