// LogFile: a small text log with a day-of-month ring.
//
// Mode 0 writes to D\N.log; mode 1 to D\Ndd.log with dd the local day of
// the month (two digits), and moves to the next day's name at the first
// record of a new day: at most 31 files, each emptied ("w") when its day
// number returns. The file holds exactly what the callers wrote, and every
// record is flushed before Log returns.
//
// Progress and failure texts go to standard output (see each operation).
// Hard failures throw a plain int, the value of errno, always after the
// lock was released.
//
// With useLock not 0, Open, Close and both Log forms hold the lock (the
// Mutex base) from start to end, so records and day switches of several
// threads never mix; with 0 the object belongs to one thread.
//
// Copies are one log: they share the lock, the stream, the names and the
// day, and the last copy to go closes the stream and frees the names.
#pragma once

#include "Mutex.h"
#include "TSDefs.h"

#include <stdio.h>

struct LogFileState;

class TSUTIL_API LogFile : public Mutex {
public:
    // Copies directory; touches no file.
    LogFile(char const *directory, int useLock);
    LogFile(LogFile const &other);
    LogFile &operator=(LogFile const &other);
    // Closes the stream when this is the last copy. Takes no lock.
    virtual ~LogFile();

    // Opens the log. An open log stays open on its file and ignores the
    // arguments. The directory is created when missing (one level only:
    // "Creating Directory D", or "Unable to create driectory D" and a
    // throw); "D doest not have access permission." and a throw when it
    // may not be examined; "Application does not have write permisson to
    // D" and a throw when it may not be written; a failed open of the file
    // throws without a text. A mode other than 0 and 1 opens nothing and
    // reports nothing. Opening after Close or a failure starts anew: the
    // file is emptied.
    void Open(char const *name, int mode);
    // Closes the file; a later Log reports that the log is not open, and
    // a later Open starts anew. Nothing happens on a closed log.
    void Close();
    // Writes text unchanged with its terminating zero byte (a percent sign
    // means nothing here). On a closed log, "Logfile <path> not open..."
    // is printed (an empty path before the first Open) and the text is
    // lost. In mode 1 the first record of a new day prints "Switching Log
    // file <old path> to <new path>", closes the old file and empties and
    // opens the new one; when that open fails, the log is closed and errno
    // thrown. Mode 0 logs keep their one name: they make no day check.
    // A record that does not reach the file whole (a full disk) closes the
    // log and throws errno (ENOSPC): the file keeps the records before it,
    // followed by at most a part of it.
    void Log(char const *text);
    // As above, the text formatted in the manner of fprintf, written
    // without a terminating zero byte. Chosen by a call with more than one
    // argument (a call with one argument takes the form above; C++ would
    // find a plain variadic overload ambiguous there).
    template <class First, class... Rest>
    void Log(char const *format, First first, Rest... rest)
    {
        LogFormatted(format, first, rest...);
    }
    // The formatted form by its own name, for any number of arguments.
    void LogFormatted(char const *format, ...);

    // The date that the ring follows: a function that writes the local
    // date as "mm/dd/yy". Null restores the default, which takes up the
    // time zone afresh (_tzset) and reads the date (_strdate). Process-
    // wide; gives the previous source (null for the default).
    typedef void (*DateSource)(char *mmddyy);
    static DateSource SetDateSource(DateSource source);

private:
    // The day of the month, two digits, from the date source into day.
    void FindDayOfMonth(char *day);
    // Takes up the new day when the date's day differs from the one kept:
    // 1 when it did (the caller moves to the day's file), else 0.
    int SwapLog();
    // Steps common to both Log forms: the lock, the closed test and the
    // day check. False (lock released) when nothing is to be written.
    bool BeginRecord();
    // Flushes the record; one not written whole closes the log and throws.
    void EndRecord(bool written);
    // The lock, taken and given up only when useLock was not 0.
    void LockIfUsed();
    void UnlockIfUsed();
    // Gives up the lock (if used) and throws error.
    [[noreturn]] void UnlockAndThrow(int error);
    // Drops this copy's share; the last closes the stream and frees the names.
    void Release();

    LogFileState *m_pState;
};

// The lock (table pointer and cell) and the shared state.
static_assert(sizeof(LogFile) == 3 * sizeof(void *), "LogFile layout");
