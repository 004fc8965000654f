// DiagDumpContext: the exact bytes of its files (every format, CR LF, the
// 280-byte cut), the open at the first write, the neighbouring names of a
// second writer, the directory branch of a missing folder, and a stream
// that goes silent after a failed write.
#include "DDUMPC.h"

#include "ScratchDir.h"

#include <mbctype.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using tstest::IsDir;
using tstest::ReadWholeFile;
using tstest::ScratchDir;
using tstest::WriteWholeFile;

// A scratch folder as the current directory, and a stream per name in it.
class DiagStreamTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(SetCurrentDirectoryA(dir.path().c_str())); }
    std::string Content(const std::string &name) { return ReadWholeFile(dir / name); }

    ScratchDir dir;
};

// A file and its stream, destroyed in the right order.
struct Stream {
    explicit Stream(char const *name) : dc(&file, TRUE, name) {}
    CFile file;
    DiagDumpContext dc;
};

TEST_F(DiagStreamTest, EachOperatorWritesItsFormat)
{
    Stream s("formats.txt");
    const unsigned short wide[] = {'w', 'i', 'd', 'e', 0x263A, 0};
    s.dc << "text|" << static_cast<char const *>(nullptr) << "|" << CString("cstring") << "|"
         << static_cast<unsigned char>(255) << "|" << static_cast<unsigned short>(65535) << "|" << 255u << "|" << -5L
         << "|" << 4000000000UL << "|" << -7 << "|" << TRUE << "|" << FALSE << "|" << static_cast<BOOLTYPE>(2) << "|"
         << reinterpret_cast<void const *>(0xABC123) << "|" << 0.1 << "|" << 2.0 / 3 << "|" << wide << "|"
         << static_cast<unsigned short const *>(nullptr) << "|" << static_cast<CObject const *>(nullptr);
    EXPECT_EQ(Content("formats.txt"), "text|(NULL)|cstring|0xFF|65535|0xFF|-5|4000000000|-7|TRUE|FALSE|FALSE|"
                                      "$ABC123|0.1|0.666667|wide?|(NULL)|NULL");
}

// Pieces written one call each, and the bytes they become in the file.
TEST_F(DiagStreamTest, EachPieceBecomesItsBytes)
{
    const std::string exact(280, 'x'), over = std::string(280, 'y') + "Z";
    std::string crlfs;
    for (int i = 0; i < 280; ++i)
        crlfs += "\r\n";
    const struct {
        const char *what;
        int codePage; // 0: the process's own
        std::vector<std::string> pieces;
        std::string bytes;
    } cases[] = {
        {"bare line feeds become CR LF within one call", 0,
         {"a\nb\n", "|c\r\nd|", "lone\r|", "end\r", "\nnext"}, "a\r\nb\r\n|c\r\nd|lone\r|end\r\r\nnext"},
        // 0x5C after a lead byte is the second byte of a character, no backslash.
        {"double-byte text goes character by character", 932,
         {"ab\n\x82\xa0\n", "\x82\xa0\r\n\n|", "\x82\x5c\n"}, "ab\r\n\x82\xa0\r\n\x82\xa0\r\n\r\n|\x82\x5c\r\n"},
        {"a piece keeps its first 280 bytes", 0, {exact, over}, exact + std::string(280, 'y')},
        {"280 line feeds are 560 bytes, more than the 300-byte buffer holds", 0, {std::string(280, '\n')}, crlfs},
    };
    const int previous = _getmbcp();
    for (const auto &c : cases) {
        std::string name = "piece" + std::to_string(&c - cases) + ".txt";
        if (c.codePage) {
            ASSERT_EQ(_setmbcp(c.codePage), 0);
        }
        {
            Stream s(name.c_str());
            for (const std::string &piece : c.pieces)
                s.dc << piece.c_str();
        }
        _setmbcp(previous);
        EXPECT_EQ(Content(name), c.bytes) << c.what;
    }
}

TEST_F(DiagStreamTest, TheFirstWriteOpensAndEmptiesTheFileAndEachWriteIsThereAtOnce)
{
    ASSERT_TRUE(WriteWholeFile(dir / "lazy.txt", "old contents"));
    {
        Stream s("lazy.txt");
        EXPECT_EQ(Content("lazy.txt"), "old contents"); // construction touches no file
        s.dc << "";
        EXPECT_EQ(Content("lazy.txt"), "");
        s.dc << "one\n";
        EXPECT_EQ(Content("lazy.txt"), "one\r\n");
        s.dc << 2;
        EXPECT_EQ(Content("lazy.txt"), "one\r\n2");
        s.dc.Diag_Flush();
    }
    EXPECT_EQ(Content("lazy.txt"), "one\r\n2");
    Stream unused("never.txt");
    EXPECT_EQ(Content("never.txt"), "<missing>");
}

TEST_F(DiagStreamTest, WritersOfOneNameGetTheDigitsTwoToNine)
{
    std::vector<std::unique_ptr<Stream>> streams;
    for (int i = 1; i <= 9; ++i) {
        streams.push_back(std::make_unique<Stream>("defSDiag.txt"));
        streams.back()->dc << "writer " << i;
    }
    EXPECT_EQ(Content("defSDiag.txt"), "writer 1");
    for (int i = 2; i <= 9; ++i)
        EXPECT_EQ(Content("defSDia" + std::to_string(i) + ".txt"), "writer " + std::to_string(i));
}

TEST_F(DiagStreamTest, WithoutADotTheLastCharacterMakesWayAndTheDotSearchSeesTheWholePath)
{
    struct Case {
        char const *name, *second;
    } const cases[] = {
        {"nodot", "nodo2"},
        {".first", ".firs2"},
        {"dir.d\\plain", "di2.d\\plain"},
    };
    ASSERT_TRUE(CreateDirectoryA((dir / "dir.d").c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA((dir / "di2.d").c_str(), nullptr));
    for (Case const &c : cases) {
        Stream first(c.name), second(c.name);
        first.dc << "1";
        second.dc << "2";
        EXPECT_EQ(Content(c.name), "1") << c.name;
        EXPECT_EQ(Content(c.second), "2") << c.name;
    }
}

TEST_F(DiagStreamTest, ANameInAMissingDirectoryCreatesTheBranch)
{
    std::string name = dir / "deep\\er\\diag.txt";
    Stream s(name.c_str());
    s.dc << "here\n";
    EXPECT_TRUE(IsDir(dir / "deep\\er"));
    EXPECT_EQ(ReadWholeFile(name), "here\r\n");
}

TEST_F(DiagStreamTest, AFailedWriteSilencesTheStreamForGood)
{
    ASSERT_TRUE(WriteWholeFile(dir / "readonly.txt", "kept"));
    CFile file;
    ASSERT_TRUE(file.Open((dir / "readonly.txt").c_str(), CFile::modeRead | CFile::shareDenyNone));
    DiagDumpContext dc(&file, FALSE, nullptr);
    dc << "refused"; // the file is open for reading only
    file.Close();
    ASSERT_TRUE(file.Open((dir / "readonly.txt").c_str(), CFile::modeWrite | CFile::shareDenyNone));
    dc << "dropped";
    dc.Diag_Flush();
    file.Close();
    EXPECT_EQ(Content("readonly.txt"), "kept");
}

TEST_F(DiagStreamTest, StreamsWithNothingToOpenStaySilent)
{
    DiagDumpContext placeholder;
    placeholder << "nowhere" << 1 << static_cast<CObject const *>(nullptr);
    placeholder.Diag_Flush();

    CFile file;
    DiagDumpContext noName(&file, TRUE, nullptr);
    noName << "nowhere";
    DiagDumpContext notToOpen(&file, FALSE, "notopened.txt");
    notToOpen << "nowhere";
    EXPECT_EQ(Content("notopened.txt"), "<missing>");
    EXPECT_EQ(file.m_hFile, static_cast<UINT>(CFile::hFileNull));
}

TEST_F(DiagStreamTest, LongNamesAreCutAndLongWideTextIsCutWhole)
{
    // A path of exactly 255 bytes, and more behind it that the stream drops.
    std::string kept = dir / std::string(254 - dir.path().size(), 'n');
    ASSERT_EQ(kept.size(), 255u);
    CFile file;
    {
        DiagDumpContext dc(&file, TRUE, (kept + "-cut-away").c_str());
        std::vector<unsigned short> wide(600, 'w');
        wide.push_back(0);
        dc << wide.data();
        EXPECT_EQ(std::string(file.GetFilePath()), kept);
    }
    EXPECT_EQ(ReadWholeFile(kept), std::string(280, 'w'));
}

class Dumped : public CObject {
public:
    void Dump(CDumpContext &dc) const override { dc << "dumped " << 42 << "\n"; }
};

TEST_F(DiagStreamTest, ObjectsDumpThroughTheStream)
{
    Stream s("objects.txt");
    Dumped object;
    CFile plain;
    s.dc << object << "|" << &object;
    s.dc << static_cast<CObject const &>(plain);
    std::string content = Content("objects.txt");
    EXPECT_EQ(content.substr(0, 23), "dumped 42\r\n|dumped 42\r\n");
    EXPECT_EQ(content.substr(23, 12), "a CFile at $");
    EXPECT_EQ(content.substr(content.size() - 2), "\r\n");
}

} // namespace
