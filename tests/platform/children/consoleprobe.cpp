// A console program with control handlers, for the console event tests.
//   consoleprobe MODE READYFILE [unblocked]
// creates READYFILE once its handlers are in place, then waits for a
// handler to tell it to end. Exit code 10 + the event when the handlers
// ran as the mode expects (last added first, on a thread other than the
// main one), 99 when they did not, 98 when no event came.
//   handled    second handler returns TRUE: the first is not called
//   chain      second returns FALSE, first TRUE: both run, second first
//   unhandled  both return FALSE: the process ends by the signal
//   stopping   returns TRUE and the program takes 300 ms to stop
//   ignore     Ctrl+C ignored (null handler); other events handled
// The console signals are blocked in every thread, so the watcher reads
// them pending, unless "unblocked" leaves them to the signal handler.
#include <windows.h>

#include "TestSupport.h"

#include <stdio.h>
#include <string.h>

#include <cstdlib>
#include <mutex>
#include <string>

namespace {

std::mutex lock;
std::string order;
DWORD lastEvent = 0xFFFF;
DWORD mainThread;
bool offMain = true;
HANDLE done;
bool secondResult = TRUE;
bool firstResult = TRUE;

void Record(char who, DWORD event)
{
    std::lock_guard<std::mutex> g(lock);
    order += who;
    lastEvent = event;
    if (GetCurrentThreadId() == mainThread)
        offMain = false;
}

BOOL WINAPI First(DWORD event)
{
    Record('1', event);
    if (firstResult)
        SetEvent(done);
    return firstResult;
}

BOOL WINAPI Second(DWORD event)
{
    Record('2', event);
    if (secondResult)
        SetEvent(done);
    return secondResult;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 && !(argc == 4 && std::string(argv[3]) == "unblocked"))
        return 100;
    if (argc == 3)
        tstest::LeaveConsoleSignalsToTheWatcher();
    std::string mode = argv[1];
    mainThread = GetCurrentThreadId();
    done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::string expected = "2";
    if (mode == "chain") {
        secondResult = FALSE;
        expected = "21";
    } else if (mode == "unhandled") {
        firstResult = secondResult = FALSE;
    } else if (mode == "ignore") {
        SetConsoleCtrlHandler(nullptr, TRUE);
    }
    SetConsoleCtrlHandler(First, TRUE);
    SetConsoleCtrlHandler(Second, TRUE);
    if (FILE *f = fopen(argv[2], "w"))
        fclose(f);
    if (WaitForSingleObject(done, 20000) != WAIT_OBJECT_0)
        return 98;
    if (mode == "stopping")
        Sleep(300); // stopping in good order; more events may come meanwhile
    std::lock_guard<std::mutex> g(lock);
    // Where the test sends an event again, the handler may take it before
    // the verdict: any number of calls of the second handler is right.
    bool repeats = mode == "stopping" || mode == "ignore";
    bool ok = offMain && (repeats ? order.find_first_not_of('2') == std::string::npos : order == expected);
    // Ended at once, with the lock held: a later event's handler thread must
    // not meet the process's static objects being torn down.
    std::_Exit(ok ? static_cast<int>(10 + lastEvent) : 99);
}
