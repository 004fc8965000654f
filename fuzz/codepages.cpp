// Code-page conversions: any bytes in 1252, 932 and UTF-8 convert to UTF-16
// and back. The size query gives exactly what the conversion writes; what
// converts with MB_ERR_INVALID_CHARS comes back byte for byte (932 only
// where no other byte sequence writes the same character); any UTF-16 text
// converts to a code page without writing past its buffer.
#include <windows.h>

#include <stdlib.h>
#include <string.h>

#include <vector>

namespace {

void roundTrip(UINT codePage, const char *bytes, int size)
{
    int wide = MultiByteToWideChar(codePage, 0, bytes, size, nullptr, 0);
    if (size > 0 && wide <= 0)
        abort(); // without MB_ERR_INVALID_CHARS every byte becomes something
    std::vector<WCHAR> text(static_cast<size_t>(wide) + 1, 0xFFFF);
    if (MultiByteToWideChar(codePage, 0, bytes, size, text.data(), wide) != wide || text[wide] != 0xFFFF)
        abort();

    int strict = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, bytes, size, nullptr, 0);
    if (strict <= 0)
        return; // not valid text of the code page
    int narrow = WideCharToMultiByte(codePage, 0, text.data(), wide, nullptr, 0, nullptr, nullptr);
    std::vector<char> back(static_cast<size_t>(narrow) + 1, '\x7F');
    if (WideCharToMultiByte(codePage, 0, text.data(), wide, back.data(), narrow, nullptr, nullptr) != narrow ||
        back[narrow] != '\x7F')
        abort();
    // 1252 and UTF-8 are one to one; 932 has characters with two spellings.
    if (codePage != 932 && (narrow != size || memcmp(back.data(), bytes, static_cast<size_t>(size)) != 0))
        abort();
}

void fromWide(UINT codePage, const WCHAR *text, int count)
{
    int narrow = WideCharToMultiByte(codePage, 0, text, count, nullptr, 0, nullptr, nullptr);
    if (count > 0 && narrow <= 0)
        abort();
    // A buffer one byte short is refused with ERROR_INSUFFICIENT_BUFFER and
    // nothing past it is written.
    if (narrow > 1) {
        std::vector<char> shortBuffer(static_cast<size_t>(narrow), '\x7F');
        SetLastError(0);
        if (WideCharToMultiByte(codePage, 0, text, count, shortBuffer.data(), narrow - 1, nullptr, nullptr) != 0 ||
            GetLastError() != ERROR_INSUFFICIENT_BUFFER || shortBuffer[narrow - 1] != '\x7F')
            abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *bytes = reinterpret_cast<const char *>(data);
    int n = static_cast<int>(size);
    for (UINT codePage : {1252u, 932u, static_cast<UINT>(CP_UTF8)}) {
        roundTrip(codePage, bytes, n);
        fromWide(codePage, reinterpret_cast<const WCHAR *>(data), n / 2);
    }
    return 0;
}
