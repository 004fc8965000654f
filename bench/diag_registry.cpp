// The cost the library's classes add to the calls below them, each beside
// the bare call in the same run:
// - RegistryUint::Get through a key that is already open, beside a bare
//   RegQueryValueExA of the same REG_DWORD;
// - DiagDumpContext writing a 100-byte message with two line feeds, beside a
//   bare WriteFile (the call under CFile::Write) of the same 102 bytes as
//   the stream writes them, CR LF and all; and CFile::Write of those bytes,
//   the stream's own call.
//
// Works below HKCU\Software\TSUtilBenchDiag and in a file of the current
// directory, both removed at the end; on POSIX run it with a machine root
// of its own (TSUTIL_ROOT=$(mktemp -d)).
#include <DDUMPC.h>
#include <RegValue.h>

#include <benchmark/benchmark.h>

#include "baselines.h"

#include <string>

namespace {

const char *const kKey = "Software\\TSUtilBenchDiag";
const char *const kFile = "tsutil-bench-diag.txt";

// 100 bytes with two line feeds.
std::string Message()
{
    std::string text = std::string(48, 'a') + "\n" + std::string(49, 'b') + "\n";
    return text + std::string(100 - text.size(), 'c');
}

std::string Translated()
{
    std::string out;
    for (char c : Message())
        out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return out;
}

HKEY OpenBenchKey()
{
    HKEY k = nullptr;
    RegCreateKeyExA(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr);
    DWORD v = 42;
    RegSetValueExA(k, "value", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4);
    return k;
}

void BM_RegQueryValueExDword(benchmark::State &state)
{
    HKEY k = OpenBenchKey();
    RunRegQueryDword(state, k);
    RegCloseKey(k);
}
BENCHMARK(BM_RegQueryValueExDword);

void BM_RegistryUintGet(benchmark::State &state)
{
    RegCloseKey(OpenBenchKey());
    RegistryKey key(HKEY_CURRENT_USER, kKey, KEY_READ, FALSE);
    if (key.Open() != TRUE)
        state.SkipWithError("open failed");
    RegistryUint value("value", key);
    for (auto _ : state) {
        unsigned int out = 0;
        if (value.Get(&out) != TRUE)
            state.SkipWithError("get failed");
        benchmark::DoNotOptimize(out);
    }
    RegDeleteKeyA(HKEY_CURRENT_USER, kKey);
}
BENCHMARK(BM_RegistryUintGet);

void BM_WriteFileBare(benchmark::State &state)
{
    std::string bytes = Translated();
    HANDLE h = CreateFileA(kFile, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                           nullptr);
    if (h == INVALID_HANDLE_VALUE)
        state.SkipWithError("create failed");
    for (auto _ : state) {
        DWORD written = 0;
        if (!WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
            state.SkipWithError("write failed");
    }
    CloseHandle(h);
    DeleteFileA(kFile);
}
BENCHMARK(BM_WriteFileBare);

void BM_DiagDumpContextMessage(benchmark::State &state)
{
    std::string message = Message();
    {
        CFile file;
        DiagDumpContext stream(&file, TRUE, kFile);
        stream << ""; // the open is not part of a write
        for (auto _ : state)
            stream << message.c_str();
    }
    DeleteFileA(kFile);
}
BENCHMARK(BM_DiagDumpContextMessage);

// The stream's own file call alone, for where the difference lies.
void BM_CFileWrite(benchmark::State &state)
{
    std::string bytes = Translated();
    {
        CFile file;
        if (!file.Open(kFile, CFile::modeCreate | CFile::modeWrite | CFile::shareDenyWrite))
            state.SkipWithError("open failed");
        for (auto _ : state)
            file.Write(bytes.data(), static_cast<UINT>(bytes.size()));
    }
    DeleteFileA(kFile);
}
BENCHMARK(BM_CFileWrite);

} // namespace

BENCHMARK_MAIN();
