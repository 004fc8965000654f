// The heartbeat's worker: a ServiceThread that answers the service's four
// interlocks (start, stop, pause, continue) and, while the service runs,
// beats: every beat goes to the day-ring log, to the diagnostic file
// through a gated message (written only while an operator has diagnostics
// switched on), and on a console to the screen.
#pragma once

#include "AnswerLoop.h"

#include <LogFile.h>
#include <SvcThrd.h>

#include <stdio.h>
#include <time.h>

#include <atomic>

namespace heartbeat {

// The heartbeat's own class in the guard's table of masks: errors and
// messages on, as for every program class.
const DiagGuard::ClassNameIndex kHeartbeatClass = DiagGuard::FirstProgramIndex;

class HeartbeatWorker : public ServiceThread {
public:
    // Writes its diagnostics to diagFile (the thread's own guard), its
    // records to log; says what it does on standard output when onConsole.
    HeartbeatWorker(char const *diagFile, Answers answers, LogFile &log, bool onConsole, unsigned long beatMs)
        : ServiceThread(diagFile), answers_(answers), log_(log), onConsole_(onConsole), beatMs_(beatMs)
    {
        m_bAutoDelete = FALSE; // the service waits for the thread and deletes it
    }

    unsigned long Beats() const { return beats_; }

    // Answers the start, then beats until the stop (AnswerLoop.h); while
    // paused it stands still.
    int Run() override
    {
        AnswerUntilStop(
            answers_, beatMs_, [this](Change change) { Record(kEvents[change][0], kEvents[change][1]); },
            [](Change) {}, [this] { Beat(); });
        return ExitInstance();
    }

private:
    void Beat()
    {
        char what[32];
        snprintf(what, sizeof what, "beat %lu", ++beats_);
        Record(what, what);
    }

    // One event: a line in the log, a gated message, a line on the console.
    void Record(char const *what, char const *told)
    {
        char stamp[16] = "";
        time_t now = time(nullptr);
        strftime(stamp, sizeof stamp, "%H:%M:%S", localtime(&now));
        try {
            log_.Log("%s %s\n", stamp, what);
        } catch (int error) {
            DIAG_ERR(kHeartbeatClass, "heartbeat: the log refused a record, errno " << error << "\n");
        }
        DIAG_MSG(kHeartbeatClass, stamp << " heartbeat " << what << "\n");
        if (onConsole_) {
            printf("heartbeat: %s\n", told);
            fflush(stdout);
        }
    }

    // For each change: the word of the log and the diagnostics, the words
    // of the console.
    static constexpr char const *kEvents[4][2] = {
        {"started", "the worker answered the start request; the service runs, a beat a second"},
        {"stopped", "the worker answered the stop request"},
        {"paused", "the worker answered the pause request; no beats until continued"},
        {"continued", "the worker answered the continue request; beating again"},
    };

    Answers answers_;
    LogFile &log_;
    bool onConsole_;
    unsigned long beatMs_;
    std::atomic<unsigned long> beats_{0};
};

} // namespace heartbeat
