// Code page conversions: 1 KiB of text of 1252 (Western European) and of
// 932 (Japanese) to UTF-16 and back, through the bare platform calls with
// the output buffer sized beforehand, as a caller that converts into a
// buffer of its own does, and through GenericText, which asks for the size
// and then converts, on texts ended by their terminator. Run beside the
// Windows build under Wine.
#include "GenTxt.h"

#include <windows.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

using Wide = std::basic_string<WCHAR>;

Wide FromUtf16(const char16_t *text)
{
    Wide out;
    for (; *text; ++text)
        out += static_cast<WCHAR>(*text);
    return out;
}

// Text of the code page, about 1024 bytes, ending on a whole character.
std::string KibibyteOf(UINT page, const Wide &sample)
{
    std::string piece(static_cast<size_t>(sample.size() * 2), '\0');
    int n = WideCharToMultiByte(page, 0, sample.data(), static_cast<int>(sample.size()), &piece[0],
                                static_cast<int>(piece.size()), nullptr, nullptr);
    piece.resize(n > 0 ? static_cast<size_t>(n) : 0);
    std::string text;
    while (!piece.empty() && text.size() + piece.size() <= 1024)
        text += piece;
    return text;
}

const std::string &Text1252()
{
    static const std::string text = KibibyteOf(
        1252, FromUtf16(u"Le c\u0153ur d\u00e9\u00e7u mais l'\u00e2me plut\u00f4t na\u00efve, Lou\u00ffs r\u00eava "
                        u"de crapa\u00fcter en cano\u00eb au del\u00e0 des \u00eeles \u2014 \u20ac 12,50. "));
    return text;
}

const std::string &Text932()
{
    static const std::string text = KibibyteOf(
        932, FromUtf16(u"\u65e5\u672c\u8a9e\u306e\u30c6\u30ad\u30b9\u30c8\u3068\u534a\u89d2\uff76\uff80\uff76\uff85"
                       u"\u3001\u82f1\u5b57 ASCII 123\u3002\u6771\u4eac\u90fd\u6e2f\u533a\u3067\u4f1a\u8b70\u3092"
                       u"\u958b\u304d\u307e\u3057\u305f\u3002"));
    return text;
}

void ToWide(benchmark::State &state, UINT page, const std::string &text)
{
    int units = MultiByteToWideChar(page, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    Wide out(static_cast<size_t>(units), 0);
    for (auto _ : state) {
        int n = MultiByteToWideChar(page, 0, text.data(), static_cast<int>(text.size()), &out[0], units);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
}

void FromWide(benchmark::State &state, UINT page, const std::string &text)
{
    int units = MultiByteToWideChar(page, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    Wide wide(static_cast<size_t>(units), 0);
    MultiByteToWideChar(page, 0, text.data(), static_cast<int>(text.size()), &wide[0], units);
    std::string out(text.size(), '\0');
    for (auto _ : state) {
        int n = WideCharToMultiByte(page, 0, wide.data(), units, &out[0], static_cast<int>(out.size()), nullptr,
                                    nullptr);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
}

void From1252ToWide(benchmark::State &state) { ToWide(state, 1252, Text1252()); }
BENCHMARK(From1252ToWide);
void FromWideTo1252(benchmark::State &state) { FromWide(state, 1252, Text1252()); }
BENCHMARK(FromWideTo1252);
void From932ToWide(benchmark::State &state) { ToWide(state, 932, Text932()); }
BENCHMARK(From932ToWide);
void FromWideTo932(benchmark::State &state) { FromWide(state, 932, Text932()); }
BENCHMARK(FromWideTo932);

void GenericTextToWide(benchmark::State &state, UINT page, const std::string &text)
{
    std::basic_string<unsigned short> out(text.size() + 1, 0);
    for (auto _ : state) {
        BOOLTYPE ok = GenericText::ConvertToUnicode(text.c_str(), &out[0], page);
        benchmark::DoNotOptimize(ok);
        benchmark::ClobberMemory();
    }
}

void GenericTextFromWide(benchmark::State &state, UINT page, const std::string &text)
{
    std::basic_string<unsigned short> wide(text.size() + 1, 0);
    GenericText::ConvertToUnicode(text.c_str(), &wide[0], page);
    std::string out(text.size() + 1, '\0');
    for (auto _ : state) {
        BOOLTYPE ok = GenericText::ConvertToMBCS(wide.c_str(), &out[0], page);
        benchmark::DoNotOptimize(ok);
        benchmark::ClobberMemory();
    }
}

void GenericTextFrom1252ToWide(benchmark::State &state) { GenericTextToWide(state, 1252, Text1252()); }
BENCHMARK(GenericTextFrom1252ToWide);
void GenericTextFromWideTo1252(benchmark::State &state) { GenericTextFromWide(state, 1252, Text1252()); }
BENCHMARK(GenericTextFromWideTo1252);
void GenericTextFrom932ToWide(benchmark::State &state) { GenericTextToWide(state, 932, Text932()); }
BENCHMARK(GenericTextFrom932ToWide);
void GenericTextFromWideTo932(benchmark::State &state) { GenericTextFromWide(state, 932, Text932()); }
BENCHMARK(GenericTextFromWideTo932);

} // namespace

BENCHMARK_MAIN();
