// DiagDumpContext: the diagnostic output stream.
#include "DDUMPC.h"

#include "FileDir.h"
#include "GenSvc.h"
#include "GenTxt.h"
#include "RegEntry.h"

#include <limits.h>
#include <mbstring.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cassert>
#include <cstdint>
#include <cwchar>

namespace {

// The stream's open: modeCreate | modeWrite | shareDenyWrite.
const UINT kOpenFlags = CFile::modeCreate | CFile::modeWrite | CFile::shareDenyWrite;
static_assert(kOpenFlags == 0x1021, "the diagnostic file's open flags");

// The most bytes that the wide-text operator hands on.
const size_t kWideTextBytes = 512;

// The end of the run of single-byte characters other than LF that starts at
// in: bytes below 0x80, which are whole characters in every code page. Eight
// bytes are looked at in one step while no LF and no byte from 0x80 up can
// be among them.
char const *SingleByteRunEnd(char const *in, char const *end)
{
    uint64_t const ones = 0x0101010101010101ull, highs = 0x8080808080808080ull;
    while (end - in >= 8) {
        uint64_t bytes;
        memcpy(&bytes, in, 8);
        uint64_t feeds = bytes ^ (ones * '\n'); // a zero byte where an LF stands
        if ((((feeds - ones) & ~feeds) | bytes) & highs)
            break;
        in += 8;
    }
    while (in < end && *in != '\n' && static_cast<unsigned char>(*in) < 0x80)
        ++in;
    return in;
}

char *ZeroedBlock(size_t bytes) { return static_cast<char *>(GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, bytes)); }

void FreeBlock(char *block)
{
    if (block && GlobalFree(block) != nullptr)
        assert(!"GlobalFree refused a block of the stream");
}

} // namespace

DiagDumpContext::DiagDumpContext()
    : CDumpContext(nullptr), serviceFlag(FALSE), dumpToFile(FALSE), fileOpen(FALSE), dumpFileName(nullptr),
      outputState(0), textOutBufferSize(initTextOutBufferSize), msgBufferSize(INIT_MSG_BUFFER_SIZE),
      textInBuffer(ZeroedBlock(INIT_MSG_BUFFER_SIZE + 1)), textOutBuffer(ZeroedBlock(INIT_MSG_BUFFER_SIZE + 1))
{
}

DiagDumpContext::DiagDumpContext(CFile *file, BOOLTYPE dumpToFile_, char const *fileName)
    : CDumpContext(file), serviceFlag(FALSE), dumpToFile(dumpToFile_), fileOpen(FALSE), dumpFileName(nullptr),
      outputState(0), textOutBufferSize(initTextOutBufferSize), msgBufferSize(INIT_MSG_BUFFER_SIZE),
      textInBuffer(ZeroedBlock(INIT_MSG_BUFFER_SIZE + 1)), textOutBuffer(ZeroedBlock(INIT_MSG_BUFFER_SIZE + 1))
{
    if (dumpToFile == TRUE && fileName) {
        dumpFileName = ZeroedBlock(MAX_FILE_NAME_LEN + 1);
        if (dumpFileName)
            _mbsnbcpy(reinterpret_cast<unsigned char *>(dumpFileName),
                      reinterpret_cast<unsigned char const *>(fileName), MAX_FILE_NAME_LEN);
    }
}

DiagDumpContext::~DiagDumpContext()
{
    if (fileOpen == TRUE && m_pFile && m_pFile->m_hFile != static_cast<UINT>(CFile::hFileNull)) {
        try {
            m_pFile->Close();
        } catch (CException *e) {
            e->Delete();
        }
    }
    FreeBlock(textInBuffer);
    FreeBlock(textOutBuffer);
    FreeBlock(dumpFileName);
}

void DiagDumpContext::SetServiceFlag() { serviceFlag = TRUE; }

BOOL DiagDumpContext::TryOpen(char const *name, int &cause)
{
    CFileException failure;
    if (m_pFile->Open(name, kOpenFlags, &failure))
        return TRUE;
    cause = failure.m_cause;
    return FALSE;
}

void DiagDumpContext::CheckOpenDumpFile()
{
    if (fileOpen != FALSE || dumpToFile != TRUE)
        return;
    // No name or no file: nothing to open, and no reason to end the process;
    // the write that follows finds the file unopened and silences the stream.
    if (!dumpFileName || !m_pFile)
        return;

    int cause = CFileException::none;
    BOOL opened = TryOpen(dumpFileName, cause);
    if (!opened && cause == CFileException::sharingViolation) {
        // Another writer holds the name: the digits 2 to 9 in place of the
        // character before the last dot of the whole path (or of the last
        // character when no dot stands after the first place).
        unsigned char const *name = reinterpret_cast<unsigned char const *>(dumpFileName);
        unsigned char const *dot = _mbsrchr(name, '.');
        long at = (dot ? static_cast<long>(dot - name) : -1) - 1;
        if (at < 0)
            at = static_cast<long>(strlen(dumpFileName)) - 1;
        char neighbour[MAX_FILE_NAME_LEN + 1];
        for (char digit = '2'; at >= 0 && digit <= '9'; ++digit) {
            memcpy(neighbour, dumpFileName, sizeof neighbour);
            neighbour[at] = digit;
            if ((opened = TryOpen(neighbour, cause)) || cause != CFileException::sharingViolation)
                break;
        }
    } else if (!opened) {
        // Perhaps the directory is missing: create its branch and try again.
        unsigned char const *name = reinterpret_cast<unsigned char const *>(dumpFileName);
        if (unsigned char const *separator = _mbsrchr(name, '\\')) {
            char directory[MAX_FILE_NAME_LEN + 1];
            size_t length = static_cast<size_t>(separator - name);
            memcpy(directory, dumpFileName, length);
            directory[length] = 0;
            GenericFile::CreateDirBranch(directory, 0); // the open below tells whether it helped
            opened = TryOpen(dumpFileName, cause);
        }
    }
    if (!opened) {
        GenericService *service = GenericService::primaryServicePtr;
        if (serviceFlag == TRUE && service && service->IsRunningAsService() == TRUE)
            service->Conclude();
        _Exit(1); // at once, as _exit: no clean-up of any kind
    }
    fileOpen = TRUE;
}

BOOLTYPE DiagDumpContext::WriteOut(UINT count)
{
    try {
        m_pFile->Write(textOutBuffer, count);
        return TRUE;
    } catch (CException *e) {
        e->Delete();
        outputState = 3;
        return FALSE;
    }
}

void DiagDumpContext::BadOutputState(char const *text)
{
    AfxMessageBox(text, 0, 0);
    exit(1);
}

void DiagDumpContext::Diag_OutputString(char const *text)
{
    switch (outputState) {
    case 0: break;
    case 3: return;
    default: BadOutputState("ERROR! -- Bad case in DDUMPC Diag_OutputString.\n");
    }
    if (!text)
        text = "(NULL)"; // as the text operator writes a null string
    // A stream without its buffers (they could not be had) has nothing to
    // work with and stays silent.
    if (!textInBuffer || !textOutBuffer) {
        outputState = 3;
        return;
    }
    CheckOpenDumpFile();
    if (!m_pFile || m_pFile->m_hFile == static_cast<UINT>(CFile::hFileNull)) {
        outputState = 3; // nothing open to write to: silent from now on
        return;
    }

    // At most the first 280 bytes are written; the rest is dropped. Line
    // feeds that follow no carriage return become CR LF. The translated text
    // may outgrow textOutBuffer (each LF adds a byte): a full buffer is
    // written and the translation goes on in the emptied buffer, so nothing
    // is lost and nothing runs past its end.
    size_t const kept = static_cast<size_t>(msgBufferSize - 20);
    size_t length = strnlen(text, kept); // a long text is not read past the cut
    UINT used = 0;
    BOOLTYPE afterCR = FALSE;
    char character[GenericText::MAX_MBCS_BYTES + 1];
    char const *in = text, *end = text + length;
    bool inCopy = false;
    while (in < end) {
        char const *run = in;
        in = SingleByteRunEnd(in, end);
        if (in > run) {
            if (!Append(used, run, static_cast<size_t>(in - run)))
                return;
            afterCR = in[-1] == '\r' ? TRUE : FALSE;
        }
        if (in == end)
            break;
        if (*in == '\n') {
            if (!(afterCR == TRUE ? Append(used, "\n", 1) : Append(used, "\r\n", 2)))
                return;
            ++in;
        } else {
            if (!inCopy) {
                // From the first byte of 0x80 or more, which may begin a
                // double-byte character, the walk goes on in textInBuffer:
                // there the cut text ends, and a lead byte at the cut is no
                // character.
                size_t rest = static_cast<size_t>(end - in);
                memcpy(textInBuffer, in, rest);
                textInBuffer[rest] = 0;
                in = textInBuffer;
                end = textInBuffer + rest;
                inCopy = true;
            }
            GenericText::CopyFirstCharString(character, in);
            in = reinterpret_cast<char const *>(_mbsinc(reinterpret_cast<unsigned char const *>(in)));
            if (!Append(used, character, strlen(character)))
                return;
        }
        afterCR = FALSE;
    }
    WriteOut(used);
    textOutBuffer[0] = 0;
}

BOOLTYPE DiagDumpContext::Append(UINT &used, char const *bytes, size_t count)
{
    while (count) {
        size_t room = static_cast<size_t>(msgBufferSize) - used;
        if (room == 0) {
            if (!WriteOut(used))
                return FALSE;
            used = 0;
            continue;
        }
        size_t part = count < room ? count : room;
        memcpy(textOutBuffer + used, bytes, part);
        used += static_cast<UINT>(part);
        bytes += part;
        count -= part;
    }
    return TRUE;
}

void DiagDumpContext::Diag_Flush()
{
    switch (outputState) {
    case 0:
        if (m_pFile) {
            try {
                m_pFile->Flush();
            } catch (CException *e) {
                e->Delete();
                outputState = 3;
            }
        }
        return;
    case 3: return;
    default: BadOutputState("ERROR! -- Bad case in DDUMPC Diag_Flush.\n");
    }
}

void DiagDumpContext::OutputString(LPCSTR text) { Diag_OutputString(text); }

DiagDumpContext &DiagDumpContext::operator<<(char const *text)
{
    Diag_OutputString(text); // a null text is written as "(NULL)"
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(CString const &text) { return *this << static_cast<char const *>(text); }

namespace {

// One number as text, in a local buffer of 32 bytes.
template <class T> void PutNumber(DiagDumpContext &stream, char const *format, T value)
{
    char text[32];
    snprintf(text, sizeof text, format, value);
    stream.Diag_OutputString(text);
}

} // namespace

DiagDumpContext &DiagDumpContext::operator<<(unsigned char value)
{
    PutNumber(*this, "0x%X", static_cast<unsigned int>(value));
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(unsigned short value)
{
    PutNumber(*this, "%u", static_cast<unsigned int>(value));
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(unsigned int value)
{
    PutNumber(*this, "0x%X", value);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(long value)
{
    PutNumber(*this, "%ld", value);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(unsigned long value)
{
    PutNumber(*this, "%lu", value);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(int value)
{
    PutNumber(*this, "%d", value);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(BOOLTYPE value)
{
    Diag_OutputString(value == TRUE ? "TRUE" : "FALSE");
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(void const *pointer)
{
    // The whole address: a long holds only half of it in a 64-bit Windows
    // build, so the digits come from the pointer's own width.
    PutNumber(*this, "$%llX", static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(pointer)));
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(double value)
{
    PutNumber(*this, "%.6g", value);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(unsigned short const *wideText)
{
    if (!wideText)
        return *this << "(NULL)";
    // wcstombs would leave the text unterminated when it fills the buffer,
    // and gives nothing usable at an unconvertible character; character by
    // character, the text ends before the first character that would pass
    // kWideTextBytes, and a character that cannot be converted becomes "?".
    char text[kWideTextBytes + 1];
    size_t used = 0;
    std::mbstate_t state{};
    char character[MB_LEN_MAX];
    for (unsigned short const *unit = wideText; *unit; ++unit) {
        size_t bytes = std::wcrtomb(character, static_cast<wchar_t>(*unit), &state);
        if (bytes == static_cast<size_t>(-1)) {
            state = std::mbstate_t{};
            character[0] = '?';
            bytes = 1;
        }
        if (used + bytes > kWideTextBytes)
            break;
        memcpy(text + used, character, bytes);
        used += bytes;
    }
    text[used] = 0;
    return *this << text;
}

DiagDumpContext &DiagDumpContext::operator<<(CObject const *object)
{
    if (!object)
        return *this << "NULL";
    object->Dump(*this);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(CObject const &object) { return *this << &object; }

DiagDumpContext &DiagDumpContext::operator<<(RegistryEntry *entry)
{
    if (!entry)
        return *this << "NULL";
    entry->Dump(*this);
    return *this;
}

DiagDumpContext &DiagDumpContext::operator<<(RegistryEntry &entry) { return *this << &entry; }
