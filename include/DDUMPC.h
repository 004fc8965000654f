// DiagDumpContext: the one sink of all diagnostics, a write-only text
// stream over one CFile.
//
// Each operator<< turns its value into one piece of text with a fixed
// format and hands it to Diag_OutputString, which translates every bare
// line feed into CR LF, opens the file at the first write and writes the
// piece at once (CFile is unbuffered): what was emitted is with the
// operating system when operator<< returns. No separator or line end is
// ever added, and there is no header or time stamp.
//
//   char const *        the text; null gives "(NULL)"
//   CString const &     the text
//   unsigned char       "0x%X"          unsigned short   "%u"
//   unsigned int        "0x%X"          unsigned long    "%lu"
//   int                 "%d"            long             "%ld"
//   BOOLTYPE            "TRUE" for 1, "FALSE" for every other value
//   void const *        "$" and the address in upper-case hexadecimal
//   double              "%.6g"
//   unsigned short const * (wide text)  converted; null gives "(NULL)"
//   CObject const * / &  the object's Dump with this stream; null gives "NULL"
//   RegistryEntry * / &  the entry's Dump with this stream; null gives "NULL"
//
// The file is opened by the first write, even of an empty piece, with
// modeCreate | modeWrite | shareDenyWrite (0x1021): earlier contents are
// gone, and a second writer of the same name (another stream of this
// process or another process) is refused. That writer then tries the
// neighbouring names with the digits 2 to 9 in place of the character
// before the last dot ("defWDiag.txt" becomes "defWDia2.txt"). On any other
// failure the missing directory branch of the name is created and the name
// tried once more. When no name can be opened the process ends with
// _exit(1), after telling the service manager of the stop when the stream
// belongs to a service that runs as one (SetServiceFlag).
//
// A failed write or flush silences the stream for good, without a report.
// Nothing is allocated on the way of a write once the file is open.
//
// The stream has no lock: every writer holds the owning guard's lock around
// a whole chain of operator<<, so the pieces of one message stay together.
#pragma once

#include "TSDefs.h"

#include <afx.h>

class RegistryEntry;

class TSUTIL_API DiagDumpContext : public CDumpContext {
public:
    // No file: a placeholder, not a working output. Writing on it drops the
    // text (the stream goes silent as after a write error); flushing does
    // nothing.
    DiagDumpContext();
    // A stream over file, which stays the caller's and must outlive the
    // stream. With dumpToFile exactly TRUE and a name, the stream opens file
    // under that name (at most MAX_FILE_NAME_LEN bytes of it, never half a
    // character) at its first write. Otherwise it opens nothing and writes
    // to file only if its owner opened it; on an unopened file the first
    // write silences the stream. A null name with TRUE is taken the same
    // way: there is nothing to open, and that is no reason to end a process.
    DiagDumpContext(CFile *file, BOOLTYPE dumpToFile, char const *fileName);
    // Closes the file if this stream opened it (errors swallowed) and frees
    // the buffers; the CFile object is left to its owner.
    virtual ~DiagDumpContext();

    DiagDumpContext(DiagDumpContext const &) = delete;
    DiagDumpContext &operator=(DiagDumpContext const &) = delete;

    // Marks the stream as a service guard's: a failed open then concludes
    // the primary service before the process ends.
    void SetServiceFlag();
    // Opens the file if this stream is to open one and has not yet; ends
    // the process when no name can be opened.
    void CheckOpenDumpFile();
    // Writes one piece of text: its first 280 bytes (the rest is dropped
    // without a mark), with each line feed that does not follow a carriage
    // return written as CR LF. The flag of a preceding CR does not carry
    // over from one call to the next. A null text is written as "(NULL)".
    void Diag_OutputString(char const *text);
    // Hands written data to the disk; a failure silences the stream.
    void Diag_Flush();

    // One piece each, in the formats of the table at the top; the stream.
    DiagDumpContext &operator<<(char const *text);
    DiagDumpContext &operator<<(CString const &text);
    DiagDumpContext &operator<<(unsigned char value);
    DiagDumpContext &operator<<(unsigned short value);
    DiagDumpContext &operator<<(unsigned int value);
    DiagDumpContext &operator<<(long value);
    DiagDumpContext &operator<<(unsigned long value);
    DiagDumpContext &operator<<(int value);
    DiagDumpContext &operator<<(BOOLTYPE value);
    DiagDumpContext &operator<<(void const *pointer);
    DiagDumpContext &operator<<(double value);
    // Converted character by character as the C runtime's wcstombs would,
    // at most 512 bytes and never half a character; a character that the
    // runtime cannot convert is written as "?".
    DiagDumpContext &operator<<(unsigned short const *wideText);
    DiagDumpContext &operator<<(CObject const *object);
    DiagDumpContext &operator<<(CObject const &object);
    DiagDumpContext &operator<<(RegistryEntry *entry);
    DiagDumpContext &operator<<(RegistryEntry &entry);

protected:
    // Text that CDumpContext's own operators produce (as in a CObject's
    // Dump) goes the same way as the stream's: translated, opened lazily,
    // silenced by a failure.
    void OutputString(LPCSTR text) override;

private:
    static const int INIT_MSG_BUFFER_SIZE = 300;
    static const int initTextOutBufferSize = 255;
    static const int MAX_FILE_NAME_LEN = 255;

    // Opens name with the stream's flags; the cause of a failure in cause.
    BOOL TryOpen(char const *name, int &cause);
    // Writes count bytes of textOutBuffer, or silences the stream.
    BOOLTYPE WriteOut(UINT count);
    // Adds translated bytes to textOutBuffer (used bytes so far), writing
    // out a full buffer first; FALSE when a write failed.
    BOOLTYPE Append(UINT &used, char const *bytes, size_t count);
    // Shows the text in a box and ends the process in order: outputState
    // has a value that no operation gives it.
    [[noreturn]] static void BadOutputState(char const *text);

    BOOLTYPE serviceFlag;
    BOOLTYPE dumpToFile;
    BOOLTYPE fileOpen;
    char *dumpFileName;  // MAX_FILE_NAME_LEN + 1 zero-filled bytes, or null
    int outputState;     // 0 output works, 3 output has stopped for good
    // Kept for code that reads the layout; the stream itself sizes its
    // buffers from msgBufferSize.
    [[maybe_unused]] int textOutBufferSize;
    int msgBufferSize;
    char *textInBuffer;  // INIT_MSG_BUFFER_SIZE + 1 bytes: the piece from its first byte of 0x80 up
    char *textOutBuffer; // msgBufferSize + 1 bytes: the piece translated
};
