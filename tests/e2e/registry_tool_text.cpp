// tsreg and text in any language: .reg files in UTF-16 (as the registry
// editor writes them), UTF-8 with and without a byte order mark, and
// REGEDIT4 in code page 1252 import and export byte for byte; a file with
// anything not understood is refused whole, naming the line; text on the
// command line is UTF-8.
#include "RegistryFixture.h"
#include "ScratchDir.h"

#include <cstdio>
#include <string>

using tstest::RegistryTest;
using tstest::RunCaptured;

namespace {

std::string Utf16(const std::string &utf8)
{
    int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::basic_string<WCHAR> w(static_cast<size_t>(n), 0);
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &w[0], n);
    std::string out = "\xFF\xFE";
    for (WCHAR u : w)
        out += std::string{static_cast<char>(u & 0xFF), static_cast<char>((u >> 8) & 0xFF)};
    return out;
}

class RegistryToolText : public RegistryTest {
protected:
    std::string File(const char *name) { return root_.path().empty() ? name : root_.path() + "/" + name; }
    std::string Key() { return "HKEY_CURRENT_USER\\" + path_ + "\\Text"; }

    int Tsreg(const std::string &args, std::string *output = nullptr)
    {
        std::string out;
        int rc = RunCaptured("tsreg", args + " 2>&1", out);
        if (output)
            *output = out;
        return rc;
    }
};

// What tsreg export writes for the tree (values in name order, which
// Wine's registry keeps whatever the order of writing).
std::string Canonical(const std::string &k)
{
    return "Windows Registry Editor Version 5.00\r\n"
           "\r\n[" + k + "]\r\n"
           "\"Ästhetik\"=\"crème brûlée ü\"\r\n"
           "\"Ελληνικά\"=\"Καλημέρα \\\"κόσμε\\\" \\\\\"\r\n"
           "\"Русский\"=hex(2):25,00,41,00,25,00,5c,00,1f,04,40,04,38,04,00,00\r\n"
           "\"中文\"=hex(7):e5,65,2c,67,00,00,2d,4e,87,65,00,00,00,00\r\n"
           "\"日本語\"=\"日本語のテキスト\"\r\n"
           "\r\n[" + k + "\\Ελλάδα]\r\n"
           "\"a \\\"q\\\" \\\\ b\"=dword:0000002a\r\n"
           "\r\n[" + k + "\\Кириллица]\r\n"
           "\"Имя\"=hex:00,ff,10\r\n"
           "\r\n[" + k + "\\中文]\r\n"
           "\r\n";
}

} // namespace

TEST_F(RegistryToolText, FilesInEveryEncodingImportAndExportExactly)
{
    const std::string text = Canonical(Key());
    std::string lf;
    for (char c : text)
        if (c != '\r')
            lf += c;
    const struct {
        const char *what;
        std::string bytes;
    } cases[] = {
        {"UTF-16 as the registry editor writes it", Utf16(text)},
        {"UTF-8 with a byte order mark", "\xEF\xBB\xBF" + text},
        {"UTF-8 without one", text},
        {"UTF-8 with LF line ends", lf},
    };
    const std::string in = File("in.reg"), out = File("out.reg");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(tstest::WriteWholeFile(in, c.bytes));
        std::string output;
        ASSERT_EQ(Tsreg("import \"" + in + "\"", &output), 0) << output;
        ASSERT_EQ(Tsreg("export \"HKCU\\" + path_ + "\\Text\" \"" + out + "\" /y", &output), 0) << output;
        EXPECT_EQ(tstest::ReadWholeFile(out), Utf16(text));
        ASSERT_EQ(Tsreg("delete \"HKCU\\" + path_ + "\\Text\" /f"), 0);
    }
    // REGEDIT4: text of the ANSI code page, string types' hex bytes too.
    if (GetACP() != 1252)
        GTEST_SKIP() << "the REGEDIT4 case is written in code page 1252";
    const std::string old = "REGEDIT4\r\n"
                            "\r\n[" + Key() + "]\r\n"
                            "\"Caf\xe9\"=\"cr\xe8me br\xfbl\xe9" "e \x80\"\r\n"
                            "\"Liste\"=hex(7):e0,00,fc,00,00\r\n"
                            "\"Pfad\"=hex(2):25,41,25,5c,e9,00\r\n"
                            "\r\n";
    ASSERT_TRUE(tstest::WriteWholeFile(in, old));
    ASSERT_EQ(Tsreg("import \"" + in + "\""), 0);
    HKEY k;
    ASSERT_EQ(RegOpenKeyExA(key_, "Text", 0, KEY_READ, &k), ERROR_SUCCESS);
    BYTE data[64];
    DWORD cb = sizeof data;
    EXPECT_EQ(RegQueryValueExW(k, reinterpret_cast<LPCWSTR>(u"PFAD"), nullptr, nullptr, data, &cb), ERROR_SUCCESS);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(data), cb), std::string("%\0A\0%\0\\\0\xe9\0\0\0", 12));
    RegCloseKey(k);
    ASSERT_EQ(Tsreg("export \"HKCU\\" + path_ + "\\Text\" \"" + out + "\" /y /a"), 0);
    EXPECT_EQ(tstest::ReadWholeFile(out), old);
    // Text that code page 1252 lacks is refused, not narrowed.
    ASSERT_EQ(Tsreg("delete \"HKCU\\" + path_ + "\\Text\" /f"), 0);
    ASSERT_TRUE(tstest::WriteWholeFile(in, Utf16(text)));
    ASSERT_EQ(Tsreg("import \"" + in + "\""), 0);
    remove(out.c_str());
    std::string output;
    EXPECT_EQ(Tsreg("export \"HKCU\\" + path_ + "\\Text\" \"" + out + "\" /y /a", &output), 1);
    EXPECT_NE(output.find("REGEDIT4"), std::string::npos) << output;
    std::string written = tstest::ReadWholeFile(out);
    EXPECT_TRUE(written == "<missing>" || written.empty()) << "nothing written: " << written;
}

TEST_F(RegistryToolText, AFileWithALineNotUnderstoodIsRefusedWhole)
{
    const std::string head = "Windows Registry Editor Version 5.00\r\n\r\n[" + Key() + "]\r\n\"ok\"=\"fine\"\r\n";
    const struct {
        const char *what;
        std::string bytes;
    } cases[] = {
        {"an unknown escape", head + "\"a\"=\"x\\ty\"\r\n"},
        {"a line of no known form", head + "garbage\r\n"},
        {"text after a string", head + "\"a\"=\"x\" y\r\n"},
        {"a bad hex byte", head + "\"a\"=hex:01,xyz\r\n"},
        {"bytes that are not UTF-8", head + "\"a\"=\"\xff\"\r\n"},
        {"a lone surrogate in UTF-16", Utf16(head + "\"a\"=\"x\"\r\n").substr(0, Utf16(head).size() + 2) +
                                           std::string("\x00\xd8", 2) + Utf16("=\"x\"\r\n").substr(2)},
    };
    const std::string in = File("bad.reg");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(tstest::WriteWholeFile(in, c.bytes));
        std::string output;
        EXPECT_EQ(Tsreg("import \"" + in + "\"", &output), 1);
        EXPECT_NE(output.find("line 5"), std::string::npos) << output;
        HKEY k;
        EXPECT_EQ(RegOpenKeyExA(key_, "Text", 0, KEY_READ, &k), ERROR_FILE_NOT_FOUND) << "nothing written";
    }
}

TEST_F(RegistryToolText, CommandLineTextIsUtf8)
{
    TS_SKIP_ON_WINE("the Windows leg takes the wide command line, which the test starts through the ANSI one");
    std::string output;
    ASSERT_EQ(Tsreg("add \"HKCU\\" + path_ + "\\Καλημέρα\" /v \"Grüße\" /d \"ü中\" /f", &output), 0) << output;
    HKEY k;
    ASSERT_EQ(RegOpenKeyExW(key_, reinterpret_cast<LPCWSTR>(u"ΚΑΛΗΜΈΡΑ"), 0, KEY_READ, &k), ERROR_SUCCESS);
    BYTE data[64];
    DWORD cb = sizeof data;
    EXPECT_EQ(RegQueryValueExW(k, reinterpret_cast<LPCWSTR>(u"grüße"), nullptr, nullptr, data, &cb), ERROR_SUCCESS);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(data), cb), std::string("\xfc\0\x2d\x4e\0\0", 6));
    RegCloseKey(k);
    ASSERT_EQ(Tsreg("query \"HKCU\\" + path_ + "\\καλημέρα\" /v GRÜSSE", &output), 1) << "ß has no one-letter upper case";
    ASSERT_EQ(Tsreg("query \"HKCU\\" + path_ + "\\καλημέρα\" /v GRÜßE", &output), 0);
    EXPECT_NE(output.find("Grüße    REG_SZ    ü中"), std::string::npos) << output;
    EXPECT_EQ(Tsreg("add \"HKCU\\" + path_ + "\" /v \"\xff\" /f", &output), 1);
    EXPECT_NE(output.find("Argument 4"), std::string::npos) << output;
}
