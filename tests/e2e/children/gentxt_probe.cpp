// A program with a diagnostic guard that drives GenericText into each of its
// failures, for the tests of its gated assertions. The platform calls under
// GenericText are replaced in this process by stand-ins that fail as a site
// asks: on POSIX this program's own definitions come before the platform
// library's; on Windows the library's import table is pointed at them.
//
//   gentxt_probe SITE HIVE BASE FILE
//
// It reads the installation's settings below HIVE\BASE, makes a guard
// writing to FILE, emits "site SITE", makes the failing call and emits
// "result ..." with what the call gave. With the gate open the process ends
// in the assertion with exit code 1; with it shut it ends with 0.
#include "DiagGrd.h"
#include "GenTxt.h"
#include "RegEntry.h"
#include "TessInit.h"

#include "StandIns.h"

#include <stdio.h>

#include <memory>
#include <string>

namespace {

const DiagGuard::ClassNameIndex kProbeClass = static_cast<DiagGuard::ClassNameIndex>(12);

// What the stand-ins do: the second conversion call fails with failError,
// or (wrongLength) gives one more than it wrote; _mbclen reports a
// character of three bytes.
// Arm sets them and counts the calls afresh.
DWORD failError = 0;
bool wrongLength = false;
bool longCharacter = false;
int conversionCalls = 0;

void Arm(DWORD error, bool wrong = false, bool longChar = false)
{
    failError = error;
    wrongLength = wrong;
    longCharacter = longChar;
    conversionCalls = 0;
}

typedef int(WINAPI *ToMultiByteFn)(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL);
typedef int(WINAPI *ToWideFn)(UINT, DWORD, LPCCH, int, LPWSTR, int);
typedef size_t(__cdecl *CharLengthFn)(const unsigned char *);
ToMultiByteFn realToMultiByte;
ToWideFn realToWide;
CharLengthFn realCharLength;

// The second conversion call after Arm is the one that goes wrong: true
// when it is this call (counted here).
bool SecondCall()
{
    return (failError != 0 || wrongLength) && ++conversionCalls == 2;
}

} // namespace

STAND_IN_API int WINAPI STAND_IN(WideCharToMultiByte)(UINT cp, DWORD flags, LPCWCH in, int inLength, LPSTR out, int room,
                                           LPCCH defaultChar, LPBOOL usedDefault)
{
    bool second = SecondCall();
    if (second && failError != 0) {
        SetLastError(failError);
        return 0;
    }
    int written = standin::Real(realToMultiByte, "WideCharToMultiByte")(cp, flags, in, inLength, out, room,
                                                                      defaultChar, usedDefault);
    return second ? written + 1 : written;
}

STAND_IN_API int WINAPI STAND_IN(MultiByteToWideChar)(UINT cp, DWORD flags, LPCCH in, int inLength, LPWSTR out, int room)
{
    bool second = SecondCall();
    if (second && failError != 0) {
        SetLastError(failError);
        return 0;
    }
    int written = standin::Real(realToWide, "MultiByteToWideChar")(cp, flags, in, inLength, out, room);
    return second ? written + 1 : written;
}

STAND_IN_API size_t __cdecl STAND_IN(_mbclen)(const unsigned char *c)
{
    return longCharacter ? 3 : standin::Real(realCharLength, "_mbclen")(c);
}

namespace {

bool InstallStandIns()
{
    const void *library = reinterpret_cast<const void *>(&GenericText::ConvertToUnicode);
    return STAND_IN_INSTALL(library, WideCharToMultiByte, realToMultiByte) &&
           STAND_IN_INSTALL(library, MultiByteToWideChar, realToWide) &&
           STAND_IN_INSTALL(library, _mbclen, realCharLength);
}

const char *Text(BOOLTYPE b) { return b == TRUE ? "TRUE" : "FALSE"; }

// Runs one site and gives what the call gave as text; false for no site of
// that name.
bool RunSite(const std::string &site, std::string &result)
{
    const unsigned short wide[] = {'1', '.', '5', 0};
    char narrow[16];
    unsigned short wideOut[16];
    const char *kinds[] = {"122", "1004", "87", "1113", "other"};
    const DWORD errors[] = {ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_FLAGS, ERROR_INVALID_PARAMETER,
                            ERROR_NO_UNICODE_TRANSLATION, ERROR_GEN_FAILURE};
    for (int i = 0; i < 5; ++i) {
        if (site == std::string("mbcs-") + kinds[i]) {
            Arm(errors[i]);
            result = Text(GenericText::ConvertToMBCS(wide, narrow, 1252));
            return true;
        }
        if (site == std::string("unicode-") + kinds[i]) {
            Arm(errors[i]);
            result = Text(GenericText::ConvertToUnicode("1.5", wideOut, 1252));
            return true;
        }
    }
    if (site == "mbcs-length" || site == "unicode-length") {
        Arm(0, true);
        result = Text(site == "mbcs-length" ? GenericText::ConvertToMBCS(wide, narrow, 1252)
                                            : GenericText::ConvertToUnicode("1.5", wideOut, 1252));
        return true;
    }
    if (site == "mbcs-codepage") { // an unknown code page: the platform's own refusal
        result = Text(GenericText::ConvertToMBCS(wide, narrow, 12345));
        return true;
    }
    if (site == "copy-long") {
        Arm(0, false, true);
        GenericText::CopyFirstCharString(narrow, "ab");
        result = narrow;
        return true;
    }
    if (site == "real-from-text") {
        Arm(ERROR_GEN_FAILURE);
        char number[32];
        snprintf(number, sizeof number, "%g", GenericText::StringToReal(wide));
        result = number;
        return true;
    }
    if (site == "real-to-text") {
        Arm(ERROR_GEN_FAILURE);
        wideOut[0] = 'x';
        wideOut[1] = 0;
        result = GenericText::RealToString(1.5, wideOut, 3) == wideOut && wideOut[0] == 'x' ? "output" : "other";
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: gentxt_probe SITE HKCU|HKLM BASE FILE\n");
        return 64;
    }
    if (!InstallStandIns()) {
        fprintf(stderr, "gentxt_probe: the stand-ins could not be installed\n");
        return 66;
    }
    HKEY hive = strcmp(argv[2], "HKLM") == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    if (RegistryEntry::SetRegistryDefaults(argv[3], hive, 0, 0) != TRUE)
        return 65;
    TessaviInitInfo::AssignRegistryObjects();
    std::unique_ptr<DiagGuard> guard(new DiagGuard(argv[4]));
    DiagGuard::SetThreadDiagGuardPtr(guard.get());

    DIAG_MSG(kProbeClass, "site " << argv[1] << "\n");
    std::string result;
    if (!RunSite(argv[1], result))
        return 64;
    Arm(0);
    DIAG_MSG(kProbeClass, "result " << result.c_str() << "\n");

    DiagGuard::SetThreadDiagGuardPtr(nullptr);
    guard.reset();
    TessaviInitInfo::UnassignRegistryObjects();
    return 0;
}
