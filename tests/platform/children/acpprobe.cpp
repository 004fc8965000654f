// Prints what the process takes for its code pages, for the tests of the
// ANSI code page that the registry sets:
//   acp=<GetACP> oem=<GetOEMCP> mbcp=<_getmbcp> wide=<hex units of the
//   bytes 82 A0 41 in CP_ACP> cut=<bytes of wcstombs of U+3042 U+3044 into
//   three>
#include <windows.h>

#include <mbctype.h>
#include <stdio.h>
#include <stdlib.h>

int main()
{
    WCHAR wide[4] = {};
    int n = MultiByteToWideChar(CP_ACP, 0, "\x82\xA0" "A", 3, wide, 4);
    const WCHAR kana[] = {0x3042, 0x3044, 0};
    char bytes[4] = {};
    size_t cut = wcstombs(bytes, kana, 3);
    printf("acp=%u oem=%u mbcp=%d wide=", GetACP(), GetOEMCP(), _getmbcp());
    for (int i = 0; i < n; ++i)
        printf("%04x", wide[i]);
    printf(" cut=%d\n", static_cast<int>(cut));
    return 0;
}
