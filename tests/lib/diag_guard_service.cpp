// DiagGuardService: what its end after a failed assertion tells the service
// before the process ends (the process end itself is in the end-to-end
// tests): a stop request on the thread named by serviceDiagExecThreadPtr,
// SERVICE_STOPPED on any other, nothing on a console or without a service.
#include "DiagSvc.h"

#include "GenSvc.h"
#include "Intrlck.h"

#include "TestSupport.h"

#include <afxwin.h>

#include <functional>
#include <memory>

namespace {

using tstest::kWaitBound;

// A service object that is not run: its stop interlock is made by hand and
// its reported state starts at SERVICE_RUNNING, so that a Conclude shows.
class IdleService : public GenericService {
public:
    IdleService(BOOLTYPE asService, bool withStopInterlock)
        : GenericService("TSDiagSvcUnit", "TSUtil DiagGuardService Unit", asService, 1000)
    {
        if (withStopInterlock) {
            stopInterlockPtr = new ParentInterlockSepThread();
            child_ = stopInterlockPtr->SpawnChildInterlockSepThread();
        }
        serviceStatus.dwCurrentState = SERVICE_RUNNING;
    }
    ~IdleService() override
    {
        delete stopInterlockPtr;
        stopInterlockPtr = nullptr;
    }
    bool StopRequested() { return child_ && child_->DetectRequest(0) == TRUE; }

private:
    ChildInterlockSepThread *child_ = nullptr; // the parent's
};

struct GuardProbe : DiagGuardService {
    using DiagGuardService::DiagGuardService;
    using DiagGuardService::TellServiceOfAssert;
};

// Runs fn on a thread of the framework, so that AfxGetThread names it, and
// gives that thread's object to named before fn runs (as a program sets
// serviceDiagExecThreadPtr before the thread's guard is built).
void RunOnFrameworkThread(std::function<void()> fn, CWinThread **named)
{
    struct Job {
        std::function<void()> fn;
        HANDLE go, done;
    } job{std::move(fn), CreateEventA(nullptr, TRUE, FALSE, nullptr), CreateEventA(nullptr, TRUE, FALSE, nullptr)};
    // Started without AfxBeginThread, which suspends the thread on its way.
    CWinThread *thread = new CWinThread(
        [](LPVOID p) -> UINT {
            Job *j = static_cast<Job *>(p);
            if (WaitForSingleObject(j->go, kWaitBound) == WAIT_OBJECT_0)
                j->fn();
            SetEvent(j->done);
            return 0;
        },
        &job);
    ASSERT_TRUE(thread->CreateThread()); // the object deletes itself at the thread's end
    if (named)
        *named = thread;
    SetEvent(job.go);
    EXPECT_EQ(WaitForSingleObject(job.done, kWaitBound), WAIT_OBJECT_0);
    CloseHandle(job.go);
    CloseHandle(job.done);
}

class DiagGuardServiceTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        GenericService::serviceDiagExecThreadPtr = nullptr;
        GenericService::primaryServicePtr = nullptr;
    }
};

TEST_F(DiagGuardServiceTest, OnTheNamedThreadTheServiceIsAskedToStop)
{
    IdleService service(TRUE, true);
    RunOnFrameworkThread(
        [&] {
            GuardProbe guard("unused.txt");
            guard.TellServiceOfAssert();
        },
        &GenericService::serviceDiagExecThreadPtr);
    EXPECT_TRUE(service.StopRequested());
    EXPECT_EQ(service.GetCurrentState(), static_cast<unsigned long>(SERVICE_RUNNING)) << "no report of its own";
}

TEST_F(DiagGuardServiceTest, OnAnyOtherThreadTheStopIsReported)
{
    IdleService service(TRUE, true);
    CWinThread *named = nullptr;
    RunOnFrameworkThread([] {}, &named);
    GenericService::serviceDiagExecThreadPtr = named; // a thread of the framework, but not this one
    GuardProbe onMain("unused.txt");
    onMain.TellServiceOfAssert();
    EXPECT_EQ(service.GetCurrentState(), static_cast<unsigned long>(SERVICE_STOPPED));
    EXPECT_FALSE(service.StopRequested());

    // With no thread named, a thread that the framework did not start
    // (AfxGetThread null there too) is another thread as well.
    IdleService second(TRUE, true);
    GenericService::serviceDiagExecThreadPtr = nullptr;
    EXPECT_EQ(tstest::RunOnOtherThread([] {
                  GuardProbe guard("unused.txt");
                  guard.TellServiceOfAssert();
                  return 0u;
              }),
              0u);
    EXPECT_EQ(second.GetCurrentState(), static_cast<unsigned long>(SERVICE_STOPPED));
    EXPECT_FALSE(second.StopRequested());
}

// A console run, no service at all, a service without its stop interlock:
// nothing to tell, and nothing faults.
TEST_F(DiagGuardServiceTest, ConsoleRunsAndMissingPiecesTellNothing)
{
    {
        IdleService console(FALSE, true);
        RunOnFrameworkThread(
            [&] {
                GuardProbe guard("unused.txt");
                guard.TellServiceOfAssert();
            },
            &GenericService::serviceDiagExecThreadPtr);
        EXPECT_FALSE(console.StopRequested());
        EXPECT_EQ(console.GetCurrentState(), static_cast<unsigned long>(SERVICE_RUNNING));
    }
    GenericService::primaryServicePtr = nullptr;
    GuardProbe noService("unused.txt");
    noService.TellServiceOfAssert();
    GuardProbe placeholder;
    placeholder.TellServiceOfAssert();

    IdleService bare(TRUE, false);
    RunOnFrameworkThread(
        [&] {
            GuardProbe guard("unused.txt");
            guard.TellServiceOfAssert();
        },
        &GenericService::serviceDiagExecThreadPtr);
    EXPECT_EQ(bare.GetCurrentState(), static_cast<unsigned long>(SERVICE_RUNNING));
}

} // namespace
