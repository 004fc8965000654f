// LogFile: the day-of-month ring.
#include "LogFile.h"

#include <errno.h>
#include <io.h>
#include <share.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <atomic>
#include <iostream>

// Everything that copies share.
struct LogFileState {
    char *logBaseName;   // the name given to Open; null before it
    char *logDirectory;  // the directory given to the constructor
    int logMode;         // 0 plain name, 1 with the day of the month
    int useLock;         // not 0: every operation takes the lock
    FILE *logStream;     // null while no file is open
    char *logPath;       // full path of the current file; null before Open
    char *logDay;        // 10 bytes: the current file's day, two digits
    std::atomic<long> users;
};

namespace {

std::atomic<LogFile::DateSource> dateSource{nullptr};

void SystemDate(char *mmddyy)
{
    _tzset();
    _strdate(mmddyy);
}

FILE *OpenEmptied(const char *path)
{
    // As fopen with "w": emptied or created, shared with other openers.
    return _fsopen(path, "w", _SH_DENYNO);
}

} // namespace

LogFile::LogFile(char const *directory, int useLock) : m_pState(new LogFileState())
{
    m_pState->logDirectory = _strdup(directory ? directory : "");
    m_pState->logDay = static_cast<char *>(calloc(10, 1));
    m_pState->useLock = useLock;
    m_pState->users = 1;
}

LogFile::LogFile(LogFile const &other) : Mutex(other), m_pState(other.m_pState) { ++m_pState->users; }

LogFile &LogFile::operator=(LogFile const &other)
{
    if (m_pState != other.m_pState) {
        ++other.m_pState->users;
        Release();
        m_pState = other.m_pState;
    }
    Mutex::operator=(other);
    return *this;
}

LogFile::~LogFile() { Release(); }

void LogFile::Release()
{
    if (--m_pState->users > 0)
        return;
    if (m_pState->logStream)
        fclose(m_pState->logStream);
    free(m_pState->logBaseName);
    free(m_pState->logDirectory);
    free(m_pState->logPath);
    free(m_pState->logDay);
    delete m_pState;
}

LogFile::DateSource LogFile::SetDateSource(DateSource source) { return dateSource.exchange(source); }

void LogFile::LockIfUsed()
{
    if (m_pState->useLock)
        lock();
}

void LogFile::UnlockIfUsed()
{
    if (m_pState->useLock)
        unlock();
}

void LogFile::UnlockAndThrow(int error)
{
    UnlockIfUsed();
    throw error;
}

void LogFile::FindDayOfMonth(char *day)
{
    char date[128] = {};
    DateSource source = dateSource.load();
    (source ? source : SystemDate)(date);
    // "mm/dd/yy": the piece between the first two slashes.
    const char *start = strchr(date, '/');
    size_t n = 0;
    if (start) {
        ++start;
        while (start[n] && start[n] != '/' && n < 9)
            ++n;
        memcpy(day, start, n);
    }
    day[n] = 0;
}

int LogFile::SwapLog()
{
    char today[10];
    FindDayOfMonth(today);
    if (strcmp(today, m_pState->logDay) == 0)
        return 0;
    strcpy(m_pState->logDay, today);
    return 1;
}

void LogFile::Open(char const *name, int mode)
{
    LockIfUsed();
    LogFileState &s = *m_pState;
    if (s.logStream) {
        UnlockIfUsed();
        return;
    }
    if (!name)
        name = "";
    free(s.logBaseName);
    free(s.logPath);
    s.logBaseName = _strdup(name);
    s.logMode = mode;
    s.logPath = static_cast<char *>(malloc(strlen(name) + strlen(s.logDirectory) + 20));
    if (!s.logBaseName || !s.logPath) {
        free(s.logPath);
        s.logPath = nullptr;
        UnlockAndThrow(ENOMEM);
    }
    strcpy(s.logPath, s.logDirectory);
    strcat(s.logPath, "\\");
    strcat(s.logPath, name);

    if (_access(s.logDirectory, 0) != 0) {
        if (errno == EACCES) {
            std::cout << s.logDirectory << " doest not have access permission." << std::endl;
            UnlockAndThrow(errno);
        }
        std::cout << "Creating Directory " << s.logDirectory << std::endl;
        if (!CreateDirectoryA(s.logDirectory, nullptr)) {
            int error = errno;
            std::cout << "Unable to create driectory " << s.logDirectory << std::endl;
            UnlockAndThrow(error);
        }
    }
    if (_access(s.logDirectory, 2) != 0) {
        int error = errno;
        std::cout << "Application does not have write permisson to " << s.logDirectory << std::endl;
        UnlockAndThrow(error);
    }

    if (mode == 0) {
        strcat(s.logPath, ".log");
    } else if (mode == 1) {
        FindDayOfMonth(s.logDay);
        strcat(s.logPath, s.logDay);
        strcat(s.logPath, ".log");
    } else {
        UnlockIfUsed(); // no file for other modes, and nothing said
        return;
    }
    s.logStream = OpenEmptied(s.logPath);
    if (!s.logStream)
        UnlockAndThrow(errno);
    UnlockIfUsed();
}

void LogFile::Close()
{
    LockIfUsed();
    if (m_pState->logStream) {
        fclose(m_pState->logStream);
        m_pState->logStream = nullptr;
    }
    UnlockIfUsed();
}

bool LogFile::BeginRecord()
{
    LockIfUsed();
    LogFileState &s = *m_pState;
    if (!s.logStream) {
        std::cout << "Logfile <" << (s.logPath ? s.logPath : "") << "> not open..." << std::endl;
        UnlockIfUsed();
        return false;
    }
    if (s.logMode == 1 && SwapLog()) {
        std::cout << "Switching Log file " << s.logPath;
        fclose(s.logStream);
        s.logStream = nullptr;
        strcpy(s.logPath, s.logDirectory);
        strcat(s.logPath, "\\");
        strcat(s.logPath, s.logBaseName);
        strcat(s.logPath, s.logDay);
        strcat(s.logPath, ".log");
        s.logStream = OpenEmptied(s.logPath);
        if (!s.logStream)
            UnlockAndThrow(errno);
        std::cout << " to " << s.logPath << std::endl;
    }
    return true;
}

void LogFile::EndRecord(bool written)
{
    LogFileState &s = *m_pState;
    int error = written ? 0 : errno;
    if (fflush(s.logStream) != 0 && !error)
        error = errno;
    if (error || ferror(s.logStream)) {
        // The record did not reach the file whole (a full disk, an I/O
        // error): the log closes, so that no part of it reaches the file
        // later, and the caller learns of it. A later Open starts anew.
        fclose(s.logStream);
        s.logStream = nullptr;
        UnlockAndThrow(error ? error : EIO);
    }
    UnlockIfUsed();
}

void LogFile::Log(char const *text)
{
    if (!BeginRecord())
        return;
    if (!text)
        text = "";
    size_t size = strlen(text) + 1;
    EndRecord(fwrite(text, 1, size, m_pState->logStream) == size);
}

void LogFile::LogFormatted(char const *format, ...)
{
    if (!BeginRecord())
        return;
    va_list args;
    va_start(args, format);
    int printed = vfprintf(m_pState->logStream, format ? format : "", args);
    va_end(args);
    EndRecord(printed >= 0);
}
