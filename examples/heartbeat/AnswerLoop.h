// The answers of a service's worker to the run loop of GenericService: the
// start first, then the requests that change the worker's state, until the
// stop. A request stays raised until the run loop has seen its answer, so
// the worker watches only those that would change its state: stop and
// pause while running, stop and continue while paused.
#pragma once

#include <MultiLck.h>

namespace heartbeat {

// The change of state that an answer completes.
enum Change { Start, Stop, Pause, Continue };

// The child sides of the service's interlocks.
struct Answers {
    ChildInterlockSepThread *start, *stop, *pause, *resume;
};

// Answers until the stop has been answered. before(change) runs just
// before each answer, after(change) just after it; beat() runs each
// beatMs without a request while running (never with INFINITE), and
// nothing runs while paused.
template <class Before, class After, class Beat>
void AnswerUntilStop(Answers const &answers, unsigned long beatMs, Before before, After after, Beat beat)
{
    ChildInterlockSepThread *whileRunning[] = {answers.stop, answers.pause, nullptr};
    ChildInterlockSepThread *whilePaused[] = {answers.stop, answers.resume, nullptr};
    ChildMultiLockSepThread running(whileRunning), paused(whilePaused);
    before(Start);
    answers.start->NotifyStateReached();
    after(Start);
    bool isPaused = false;
    for (;;) {
        ChildInterlock *found = nullptr;
        if (!(isPaused ? paused : running).DetectRequest(&found, isPaused ? INFINITE : beatMs)) {
            if (!isPaused)
                beat();
            continue;
        }
        Change change = found == answers.stop ? Stop : found == answers.pause ? Pause : Continue;
        before(change);
        static_cast<ChildInterlockSepThread *>(found)->NotifyStateReached();
        after(change);
        if (change == Stop)
            return;
        isPaused = change == Pause;
    }
}

} // namespace heartbeat
