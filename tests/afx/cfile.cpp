// CFile: opening with modes and share flags, within one process and
// between two, failures as causes or thrown exceptions; CDumpContext over
// a CFile; the message box.
#include <afx.h>
#include <afxcoll.h>

#include "ScratchDir.h"

#include <string>

namespace {

using tstest::ReadWholeFile;
using tstest::ScratchDir;
using tstest::WriteWholeFile;

const UINT kDiagFlags = CFile::modeCreate | CFile::modeWrite | CFile::shareDenyWrite; // 0x1021

int Probe(const char *how, const std::string &path) { return tstest::RunChild("share_probe", {how, path}); }

TEST(CFileTest, DenyWriteHoldsInThisProcessAndAnother)
{
    ScratchDir dir;
    std::string path = dir / "diag.txt";
    CFile first;
    CFileException e;
    ASSERT_TRUE(first.Open(path.c_str(), kDiagFlags, &e)) << e.m_cause;
    EXPECT_EQ(kDiagFlags, 0x1021u);
    first.Write("abc", 3);

    // A second writer, here and in another process, is refused; the
    // refused modeCreate has not emptied the file.
    CFile second;
    CFileException e2;
    EXPECT_FALSE(second.Open(path.c_str(), kDiagFlags, &e2));
    EXPECT_EQ(e2.m_cause, CFileException::sharingViolation);
    EXPECT_EQ(e2.m_lOsError, static_cast<LONG>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(second.m_hFile, static_cast<UINT>(CFile::hFileNull));
    EXPECT_EQ(Probe("write", path), static_cast<int>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(Probe("cfile", path), 100 + CFileException::sharingViolation);
    EXPECT_EQ(ReadWholeFile(path), "abc");
    // Readers that share writing are welcome.
    EXPECT_EQ(Probe("read", path), 0);

    first.Close();
    EXPECT_EQ(first.m_hFile, static_cast<UINT>(CFile::hFileNull));
    EXPECT_EQ(Probe("cfile", path), 0);
    EXPECT_EQ(ReadWholeFile(path), ""); // emptied by the child's modeCreate
}

TEST(CFileTest, ExclusiveOpenKeepsReadersOut)
{
    ScratchDir dir;
    std::string path = dir / "exclusive.bin";
    ASSERT_TRUE(WriteWholeFile(path, "x"));
    CFile holder;
    ASSERT_TRUE(holder.Open(path.c_str(), CFile::modeRead | CFile::shareExclusive));
    EXPECT_EQ(Probe("read", path), static_cast<int>(ERROR_SHARING_VIOLATION));
    CFile reader;
    CFileException e;
    EXPECT_FALSE(reader.Open(path.c_str(), CFile::modeRead | CFile::shareDenyNone, &e));
    EXPECT_EQ(e.m_cause, CFileException::sharingViolation);
}

TEST(CFileTest, FailuresGiveCausesOrThrow)
{
    ScratchDir dir;
    CFile file;
    CFileException e;
    EXPECT_FALSE(file.Open((dir / "missing.txt").c_str(), CFile::modeRead, &e));
    EXPECT_EQ(e.m_cause, CFileException::fileNotFound);
    EXPECT_EQ(e.m_strFileName, CString((dir / "missing.txt").c_str()));
    EXPECT_FALSE(file.Open((dir / "no\\such\\folder.txt").c_str(), kDiagFlags, &e));
    EXPECT_EQ(e.m_cause, CFileException::badPath);

    // The constructor that opens throws instead.
    CFileException *thrown = nullptr;
    try {
        CFile opened((dir / "missing.txt").c_str(), CFile::modeRead);
    } catch (CFileException *ex) {
        thrown = ex;
    }
    ASSERT_NE(thrown, nullptr);
    EXPECT_EQ(thrown->m_cause, CFileException::fileNotFound);
    char text[256];
    EXPECT_TRUE(thrown->GetErrorMessage(text, sizeof text));
    thrown->Delete();

    // Writing to a file opened for reading throws.
    ASSERT_TRUE(WriteWholeFile(dir / "r.txt", "data"));
    CFile reader((dir / "r.txt").c_str(), CFile::modeRead | CFile::shareDenyNone);
    thrown = nullptr;
    try {
        reader.Write("x", 1);
    } catch (CFileException *ex) {
        thrown = ex;
    }
    ASSERT_NE(thrown, nullptr);
    EXPECT_EQ(thrown->m_cause, CFileException::accessDenied);
    thrown->Delete();
    reader.Write("x", 0); // a count of 0 does nothing, even here

    // A handle closed behind the object's back: Close throws, and the
    // object is closed all the same.
    HANDLE raw = CFile::HandleOf(reader.m_hFile);
    ASSERT_TRUE(CloseHandle(raw));
    thrown = nullptr;
    try {
        reader.Close();
    } catch (CFileException *ex) {
        thrown = ex;
    }
    ASSERT_NE(thrown, nullptr);
    EXPECT_EQ(thrown->m_cause, CFileException::invalidFile);
    thrown->Delete();
    EXPECT_EQ(reader.m_hFile, static_cast<UINT>(CFile::hFileNull));
    reader.Flush(); // nothing open: nothing happens
    reader.Close();
}

TEST(CFileTest, ReadWriteSeekAndNoTruncate)
{
    ScratchDir dir;
    std::string path = dir / "data.bin";
    {
        CFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        file.Write("0123456789", 10);
        file.Flush();
        EXPECT_EQ(file.GetLength(), 10u);
        EXPECT_EQ(file.Seek(2, CFile::begin), 2);
        char buf[4] = {};
        EXPECT_EQ(file.Read(buf, 3), 3u);
        EXPECT_EQ(std::string(buf, 3), "234");
        EXPECT_EQ(file.SeekToEnd(), 10u);
        EXPECT_EQ(file.Read(buf, 3), 0u);
        EXPECT_STREQ(file.GetFileName(), "data.bin");
    }
    {
        // The destructor released the exclusive first open: this one, which
        // throws when refused, gets the file.
        CFile keep(path.c_str(), CFile::modeCreate | CFile::modeNoTruncate | CFile::modeWrite);
        EXPECT_EQ(keep.GetLength(), 10u);
    }
    EXPECT_EQ(ReadWholeFile(path), "0123456789");
}

TEST(CDumpContextTest, WritesToItsFile)
{
    ScratchDir dir;
    std::string path = dir / "dump.txt";
    {
        CFile file(path.c_str(), kDiagFlags);
        CDumpContext dc(&file);
        EXPECT_EQ(dc.GetDepth(), 0);
        EXPECT_EQ(dc.m_pFile, &file);
        CObList list;
        dc << "n=" << 42 << " " << static_cast<const char *>(nullptr) << " " << static_cast<const CObject *>(nullptr)
           << " " << &list;
    }
    std::string text = ReadWholeFile(path);
    EXPECT_EQ(text.rfind("n=42 (NULL) NULL a CObList at $", 0), 0u) << text;
    EXPECT_NE(text.find("with 0 elements"), std::string::npos) << text;
}

TEST(AfxMessageBoxTest, GoesToStandardErrorOnPosix)
{
    TS_SKIP_ON_WINE("a real message box would wait for a click");
    ::testing::internal::CaptureStderr();
    int result = AfxMessageBox("ERROR! -- something to see", 0, 0);
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, IDOK);
    EXPECT_NE(err.find("ERROR! -- something to see"), std::string::npos);
}

} // namespace
