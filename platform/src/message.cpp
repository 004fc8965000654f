// Thread message queues: PostThreadMessageA, PostQuitMessage, GetMessageA,
// PeekMessageA. There are no windows, so every message is a thread message.
#include <windows.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace {

bool passesFilter(UINT message, UINT first, UINT last)
{
    if (message == WM_QUIT || (first == 0 && last == 0))
        return true;
    return message >= first && message <= last; // an upside-down range takes nothing
}

// One thread's queue. Posted messages and the quit mark are state under
// the lock; a waiting reader sleeps on the queue's own condition.
class MessageQueue {
public:
    void post(const MSG &msg)
    {
        {
            std::lock_guard<std::mutex> hold(lock_);
            posted_.push_back(msg);
        }
        arrived_.notify_one();
    }

    void markQuit(int exitCode)
    {
        std::lock_guard<std::mutex> hold(lock_);
        quitPending_ = true;
        quitCode_ = exitCode;
    }

    // The first posted message that passes the filter, else a pending
    // quit; false when there is neither and wait is false.
    bool take(MSG &out, UINT first, UINT last, bool remove, bool wait)
    {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            for (auto it = posted_.begin(); it != posted_.end(); ++it) {
                if (passesFilter(it->message, first, last)) {
                    out = *it;
                    if (remove)
                        posted_.erase(it);
                    return true;
                }
            }
            if (quitPending_) {
                out = MSG();
                out.message = WM_QUIT;
                out.wParam = static_cast<WPARAM>(quitCode_);
                out.time = GetTickCount();
                if (remove)
                    quitPending_ = false;
                return true;
            }
            if (!wait)
                return false;
            arrived_.wait(hold);
        }
    }

private:
    std::mutex lock_;
    std::condition_variable arrived_;
    std::deque<MSG> posted_;
    bool quitPending_ = false;
    int quitCode_ = 0;
};

// The queues of the process's threads, by thread id. A queue is shared
// with the registry so that a poster never holds a queue that went away.
class QueueRegistry {
public:
    std::shared_ptr<MessageQueue> find(DWORD threadId)
    {
        std::lock_guard<std::mutex> hold(lock_);
        auto it = queues_.find(threadId);
        return it == queues_.end() ? nullptr : it->second;
    }

    void add(DWORD threadId, std::shared_ptr<MessageQueue> queue)
    {
        std::lock_guard<std::mutex> hold(lock_);
        queues_[threadId] = std::move(queue);
    }

    void remove(DWORD threadId)
    {
        std::lock_guard<std::mutex> hold(lock_);
        queues_.erase(threadId);
    }

private:
    std::mutex lock_;
    std::unordered_map<DWORD, std::shared_ptr<MessageQueue>> queues_;
};

// Never destroyed: threads may end (and drop their queues) during exit.
QueueRegistry &registry()
{
    static QueueRegistry *r = new QueueRegistry;
    return *r;
}

// The calling thread's hold on its queue; its end takes the queue out of
// the registry, so that a later thread with the same id starts without one.
class OwnQueue {
public:
    ~OwnQueue()
    {
        if (queue_)
            registry().remove(threadId_);
    }

    MessageQueue &get()
    {
        if (!queue_) {
            threadId_ = GetCurrentThreadId();
            queue_ = std::make_shared<MessageQueue>();
            registry().add(threadId_, queue_);
        }
        return *queue_;
    }

private:
    DWORD threadId_ = 0;
    std::shared_ptr<MessageQueue> queue_;
};

thread_local OwnQueue ownQueue;

} // namespace

extern "C" {

BOOL WINAPI PostThreadMessageA(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam)
{
    std::shared_ptr<MessageQueue> queue = registry().find(idThread);
    if (!queue) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return FALSE;
    }
    MSG msg = MSG();
    msg.message = Msg;
    msg.wParam = wParam;
    msg.lParam = lParam;
    msg.time = GetTickCount();
    queue->post(msg);
    return TRUE;
}

void WINAPI PostQuitMessage(int nExitCode)
{
    ownQueue.get().markQuit(nExitCode);
}

BOOL WINAPI GetMessageA(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax)
{
    if (hWnd) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return -1;
    }
    if (!lpMsg) {
        SetLastError(ERROR_NOACCESS);
        return -1;
    }
    ownQueue.get().take(*lpMsg, wMsgFilterMin, wMsgFilterMax, true, true);
    return lpMsg->message == WM_QUIT ? FALSE : TRUE;
}

BOOL WINAPI PeekMessageA(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg)
{
    if (hWnd) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    if (!lpMsg) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    return ownQueue.get().take(*lpMsg, wMsgFilterMin, wMsgFilterMax, (wRemoveMsg & PM_REMOVE) != 0, false) ? TRUE
                                                                                                          : FALSE;
}

} // extern "C"
