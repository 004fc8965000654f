// GenericService: the object, its control tool, and the run time with its
// two handlers.
#include "GenSvc.h"

#include <mbctype.h>
#include <stdio.h>
#include <string.h>

#include <new>

static_assert(sizeof(SERVICE_STATUS) == 7 * 4, "the status record is seven 32-bit words");
static_assert(sizeof(DWORD) == 4, "times and states are 32-bit words");

GenericService *GenericService::primaryServicePtr = nullptr;
CWinThread *GenericService::serviceDiagExecThreadPtr = nullptr;
unsigned long GenericService::serviceProcessPriorityClass = 0;
int GenericService::serviceThreadPriority = 0;

// Not every set of the platform's headers names this NetBIOS code.
#ifndef ERROR_DUP_NAME
#define ERROR_DUP_NAME 52L
#endif

namespace {

// The state flags pass between the service thread and the control thread,
// which hand over through the interlocks and the service manager only, so
// each access to them is a single atomic one.
BOOLTYPE loadFlag(const BOOLTYPE &flag) { return __atomic_load_n(&flag, __ATOMIC_ACQUIRE); }
void storeFlag(BOOLTYPE &flag, BOOLTYPE value) { __atomic_store_n(&flag, value, __ATOMIC_RELEASE); }
DWORD loadWord(const DWORD &word) { return __atomic_load_n(&word, __ATOMIC_ACQUIRE); }
void storeWord(DWORD &word, DWORD value) { __atomic_store_n(&word, value, __ATOMIC_RELEASE); }

constexpr DWORD kNameBlock = 256;
constexpr DWORD kStopHintFloor = 15000;
constexpr DWORD kRemovePoll = 1000;

// What a name reads as when its block cannot be had: never written, never
// freed.
char gNoName[1] = {0};

// A zero-filled block of kNameBlock bytes holding name cut to at most 255
// characters and 255 bytes, never in the middle of a double-byte
// character; gNoName when the block cannot be allocated.
char *CopyName(char const *name)
{
    char *block = static_cast<char *>(GlobalAlloc(GPTR, kNameBlock));
    if (!block)
        return gNoName;
    if (!name)
        return block;
    DWORD bytes = 0;
    for (DWORD chars = 0; chars < kNameBlock - 1 && name[bytes]; ++chars) {
        DWORD width = (_ismbblead(static_cast<unsigned char>(name[bytes])) && name[bytes + 1]) ? 2 : 1;
        if (bytes + width > kNameBlock - 1)
            break;
        bytes += width;
    }
    memcpy(block, name, bytes);
    return block;
}

void FreeName(char *&name)
{
    if (name && name != gNoName)
        GlobalFree(name);
    name = nullptr;
}

void PrintInstallFailure(DWORD code)
{
    char const *text = nullptr;
    switch (code) {
    case ERROR_ACCESS_DENIED: text = "Access Denied\n"; break;
    case ERROR_INVALID_HANDLE: text = "Invalid Service Handle.\n"; break;
    case ERROR_DUP_NAME: text = "Duplicate Service Name found.\n"; break;
    case ERROR_INVALID_PARAMETER: text = "Invalid Parameter supplied to CreateService()\n"; break;
    case ERROR_INVALID_NAME: text = "Invalid Service Name\n"; break;
    case ERROR_INVALID_SERVICE_ACCOUNT: text = "Invalid Service Account.\n"; break;
    case ERROR_CIRCULAR_DEPENDENCY: text = "Circular Dependency found.\n"; break;
    case ERROR_SERVICE_EXISTS: text = "Service is already installed.\n"; break;
    default: return;
    }
    printf("%s", text);
}

// The handlers' lock. The console handler runs on a thread of its own and
// the control handler on the dispatcher's, each at any moment: also while
// the service thread tears the interlocks down, and while the object goes.
// Whatever reaches an interlock from outside the service thread, or the
// service through primaryServicePtr from a handler, does it under this
// lock, and the teardown and the destructor take it before they let go.
// Never destroyed: a console event may come while the process ends.
CRITICAL_SECTION &HandlersLock()
{
    static CRITICAL_SECTION *lock = [] {
        CRITICAL_SECTION *section = new CRITICAL_SECTION;
        InitializeCriticalSection(section);
        return section;
    }();
    return *lock;
}

class HandlersGuard {
public:
    HandlersGuard() { EnterCriticalSection(&HandlersLock()); }
    ~HandlersGuard() { LeaveCriticalSection(&HandlersLock()); }
    HandlersGuard(HandlersGuard const &) = delete;
    HandlersGuard &operator=(HandlersGuard const &) = delete;
};

// Takes the object out of its field under the handlers' lock, so that no
// handler can reach it any more, and deletes it after.
template <class T> void DeleteAndClear(T *&object)
{
    T *doomed;
    {
        HandlersGuard hold;
        doomed = object;
        object = nullptr;
    }
    delete doomed;
}

} // namespace

GenericService::GenericService()
    : startInterlockPtr(nullptr), stopInterlockPtr(nullptr), pauseInterlockPtr(nullptr),
      continueInterlockPtr(nullptr), interlockGroupPtr(nullptr), statusHandle(nullptr), shortName(nullptr),
      longName(nullptr), serviceHandle(nullptr)
{
}

GenericService::GenericService(char const *shortName, char const *longName, BOOLTYPE runAsService,
                               unsigned long cycleWaitTime)
{
    this->cycleWaitTime = static_cast<DWORD>(cycleWaitTime);
    this->shortName = CopyName(shortName);
    this->longName = CopyName(longName);
    this->runAsService = runAsService;
    startInterlockPtr = stopInterlockPtr = pauseInterlockPtr = continueInterlockPtr = nullptr;
    interlockGroupPtr = nullptr;
    statusHandle = nullptr;
    serviceHandle = nullptr;
    paused = FALSE;
    stopAllowed = pauseAllowed = continueAllowed = TRUE;
    startTimeout = 20000;
    continueTimeout = 20000;
    stopTimeout = 15000;
    pauseTimeout = 15000;
    threadDeletionDelay = 2000;
    serviceStatus.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    serviceStatus.dwCurrentState = SERVICE_STOPPED;
    serviceStatus.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE | SERVICE_ACCEPT_SHUTDOWN;
    serviceStatus.dwWin32ExitCode = 0;
    serviceStatus.dwServiceSpecificExitCode = 0;
    serviceStatus.dwCheckPoint = 1;
    serviceStatus.dwWaitHint = 0;
    // Last, so that a console event finds the object whole.
    HandlersGuard hold;
    primaryServicePtr = this;
}

GenericService::~GenericService()
{
    {
        // A console event that comes from here on finds no service.
        HandlersGuard hold;
        if (primaryServicePtr == this)
            primaryServicePtr = nullptr;
    }
    statusHandle = nullptr;
    FreeName(shortName);
    FreeName(longName);
}

BOOLTYPE GenericService::InitPrimaryService() { return FALSE; }
BOOLTYPE GenericService::CyclePrimaryService() { return FALSE; }

// ---------------------------------------------------------------- control tool

BOOLTYPE GenericService::Install()
{
    char path[kNameBlock] = {0};
    DWORD length = GetModuleFileNameA(nullptr, path, kNameBlock - 1);
    // A result that fills the buffer is a cut path: registering it would
    // name another program, or none.
    if (length == 0 || length >= kNameBlock - 1)
        return FALSE;
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!manager)
        return FALSE;
    SC_HANDLE service = CreateServiceA(manager, shortName, longName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                       SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, path, nullptr, nullptr, nullptr,
                                       nullptr, nullptr);
    if (!service) {
        PrintInstallFailure(GetLastError());
        CloseServiceHandle(manager);
        return FALSE;
    }
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return TRUE;
}

BOOLTYPE GenericService::Remove()
{
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!manager)
        return FALSE;
    SC_HANDLE service = OpenServiceA(manager, shortName, SERVICE_ALL_ACCESS);
    if (!service) {
        CloseServiceHandle(manager);
        return FALSE;
    }
    // A service that is stopping already refuses the control, and is waited
    // for all the same.
    bool stopping = ControlService(service, SERVICE_CONTROL_STOP, &serviceStatus) ||
                    (QueryServiceStatus(service, &serviceStatus) && serviceStatus.dwCurrentState == SERVICE_STOP_PENDING);
    if (stopping) {
        // A service that reports no progress for longer than it asked for
        // (and than this object would ask for) is taken to hang.
        DWORD checkPoint = serviceStatus.dwCheckPoint;
        DWORD waitHint = serviceStatus.dwWaitHint;
        DWORD quiet = 0;
        Sleep(kRemovePoll);
        while (QueryServiceStatus(service, &serviceStatus) && serviceStatus.dwCurrentState == SERVICE_STOP_PENDING) {
            if (serviceStatus.dwCheckPoint != checkPoint || serviceStatus.dwWaitHint != waitHint) {
                checkPoint = serviceStatus.dwCheckPoint;
                waitHint = serviceStatus.dwWaitHint;
                quiet = 0;
            }
            quiet += kRemovePoll;
            DWORD limit = (waitHint > stopTimeout ? waitHint : stopTimeout) + threadDeletionDelay;
            if (quiet > limit)
                break;
            Sleep(kRemovePoll);
        }
        if (serviceStatus.dwCurrentState != SERVICE_STOPPED) {
            CloseServiceHandle(service);
            CloseServiceHandle(manager);
            return FALSE;
        }
    }
    BOOL deleted = DeleteService(service);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return deleted ? TRUE : FALSE;
}

void *GenericService::getSvcHandle()
{
    if (!serviceHandle) {
        SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        if (manager) {
            serviceHandle = OpenServiceA(manager, shortName, SERVICE_ALL_ACCESS);
            CloseServiceHandle(manager);
        }
    }
    return serviceHandle;
}

BOOLTYPE GenericService::start_svc(unsigned long argc, char const **argv)
{
    SC_HANDLE service = static_cast<SC_HANDLE>(getSvcHandle());
    if (!service) {
        printf("Unable to get service handle for %s\n", longName);
        return FALSE;
    }
    if (!StartServiceA(service, static_cast<DWORD>(argc), argv)) {
        printf("Unable to start %s\n", shortName);
        return FALSE;
    }
    printf("%s started...\n", shortName);
    return TRUE;
}

BOOLTYPE GenericService::stop_svc()
{
    SC_HANDLE service = static_cast<SC_HANDLE>(getSvcHandle());
    if (!service) {
        printf("Unable to get service handle for %s\n", longName);
        return FALSE;
    }
    SERVICE_STATUS status;
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        printf("Unable to stop %s\n", shortName);
        return FALSE;
    }
    printf("%s stopped...\n", shortName);
    return TRUE;
}

BOOLTYPE GenericService::check_status(unsigned long &state)
{
    SC_HANDLE service = static_cast<SC_HANDLE>(getSvcHandle());
    if (!service) {
        printf("Unable to get service handle for %s\n", longName);
        return FALSE;
    }
    SERVICE_STATUS status;
    if (!QueryServiceStatus(service, &status))
        return FALSE;
    state = status.dwCurrentState;
    return TRUE;
}

// ---------------------------------------------------------------- run time

BOOLTYPE GenericService::InformSCMgr(unsigned long state, unsigned long waitHint, unsigned long checkPoint)
{
    if (runAsService != TRUE)
        return TRUE;
    // The service thread and the control thread both report: each report
    // is built in a record of its own, so the manager never gets one
    // report's state with another's hint, and the kept record is changed
    // a word at a time.
    storeWord(serviceStatus.dwWaitHint, static_cast<DWORD>(waitHint));
    storeWord(serviceStatus.dwCheckPoint, static_cast<DWORD>(checkPoint));
    storeWord(serviceStatus.dwCurrentState, static_cast<DWORD>(state));
    if (!statusHandle)
        return TRUE;
    if (state == SERVICE_START_PENDING || state == SERVICE_RUNNING)
        storeWord(serviceStatus.dwWin32ExitCode, 0);
    SERVICE_STATUS report;
    report.dwServiceType = loadWord(serviceStatus.dwServiceType);
    report.dwCurrentState = static_cast<DWORD>(state);
    report.dwControlsAccepted = loadWord(serviceStatus.dwControlsAccepted);
    report.dwWin32ExitCode = loadWord(serviceStatus.dwWin32ExitCode);
    report.dwServiceSpecificExitCode = loadWord(serviceStatus.dwServiceSpecificExitCode);
    report.dwCheckPoint = static_cast<DWORD>(checkPoint);
    report.dwWaitHint = static_cast<DWORD>(waitHint);
    return SetServiceStatus(statusHandle, &report) ? TRUE : FALSE;
}

void GenericService::Conclude() { InformSCMgr(SERVICE_STOPPED, 0, 0); }

void GenericService::StopService()
{
    HandlersGuard hold;
    if (stopInterlockPtr)
        stopInterlockPtr->MakeRequest();
}

void GenericService::PauseService()
{
    HandlersGuard hold;
    if (pauseInterlockPtr)
        pauseInterlockPtr->MakeRequest();
}

void GenericService::ContinueService()
{
    HandlersGuard hold;
    if (continueInterlockPtr)
        continueInterlockPtr->MakeRequest();
}

BOOLTYPE GenericService::Begin()
{
    if (runAsService == TRUE) {
        SERVICE_TABLE_ENTRYA table[2] = {{shortName, PrimaryServiceMain}, {nullptr, nullptr}};
        return StartServiceCtrlDispatcherA(table) ? TRUE : FALSE;
    }
    PrimaryServiceMain(0, nullptr);
    return TRUE;
}

void WINAPI GenericService::PrimaryServiceMain(DWORD argc, LPSTR *argv)
{
    CommonServiceMain(argc, argv, primaryServicePtr);
}

void GenericService::CommonServiceMain(unsigned long, char **, GenericService *service)
{
    if (!service)
        return;
    if (service->runAsService == TRUE)
        service->statusHandle = RegisterServiceCtrlHandlerA(service->shortName, PrimaryServiceControlHandler);
    SetConsoleCtrlHandler(ConsoleControlHandler, 1);
    service->InformSCMgr(SERVICE_START_PENDING, service->startTimeout, 1);

    {
        // Built whole before a handler can reach them.
        ParentInterlockSepThread *list[5] = {
            new (std::nothrow) ParentInterlockSepThread(TRUE), new (std::nothrow) ParentInterlockSepThread(TRUE),
            new (std::nothrow) ParentInterlockSepThread(TRUE), new (std::nothrow) ParentInterlockSepThread(TRUE),
            nullptr};
        ParentMultiLockSepThread *group = new (std::nothrow) ParentMultiLockSepThread(list);
        HandlersGuard hold;
        service->startInterlockPtr = list[0];
        service->stopInterlockPtr = list[1];
        service->pauseInterlockPtr = list[2];
        service->continueInterlockPtr = list[3];
        service->interlockGroupPtr = group;
    }

    bool complete = service->startInterlockPtr && service->stopInterlockPtr && service->pauseInterlockPtr &&
                    service->continueInterlockPtr && service->interlockGroupPtr;
    if (!complete) {
        // A service that cannot be controlled is not started: the manager
        // sees it stop with the reason, and no worker exists to wait for.
        storeWord(service->serviceStatus.dwWin32ExitCode, ERROR_NOT_ENOUGH_MEMORY);
    } else if (!service->InitPrimaryService()) {
        service->Conclude();
    } else {
        ParentInterlock *answered = nullptr;
        bool running = true;
        while (running) {
            if (service->CyclePrimaryService()) {
                while (!service->interlockGroupPtr->WaitForResponse(service->cycleWaitTime, FALSE, &answered) &&
                       service->CyclePrimaryService()) {
                }
            }
            // The flags and the interlock are settled before the report: a
            // client that sends the next control as soon as it reads the
            // new state must find the service ready for it (a continue
            // that came before paused was set would be taken for a repeat,
            // confirmed and lost, and the workers would stay paused).
            if (answered == service->startInterlockPtr) {
                service->startInterlockPtr->ResetInterlock();
                service->InformSCMgr(SERVICE_RUNNING, 0, 0);
            } else if (answered == service->stopInterlockPtr) {
                running = false;
            } else if (answered == service->pauseInterlockPtr) {
                storeFlag(service->continueAllowed, TRUE);
                service->pauseInterlockPtr->ResetInterlock();
                storeFlag(service->paused, TRUE);
                service->InformSCMgr(SERVICE_PAUSED, 0, 0);
            } else if (answered == service->continueInterlockPtr) {
                storeFlag(service->pauseAllowed, TRUE);
                service->continueInterlockPtr->ResetInterlock();
                storeFlag(service->paused, FALSE);
                service->InformSCMgr(SERVICE_RUNNING, 0, 0);
            }
        }
    }

    // The workers finish with their child interlocks in this time.
    if (complete)
        Sleep(service->threadDeletionDelay);
    DeleteAndClear(service->startInterlockPtr);
    DeleteAndClear(service->stopInterlockPtr);
    DeleteAndClear(service->pauseInterlockPtr);
    DeleteAndClear(service->continueInterlockPtr);
    DeleteAndClear(service->interlockGroupPtr);
    service->Conclude();
}

void WINAPI GenericService::PrimaryServiceControlHandler(DWORD control)
{
    CommonServiceControlHandler(control, primaryServicePtr);
}

void GenericService::CommonServiceControlHandler(unsigned long control, GenericService *service)
{
    if (!service)
        return;
    HandlersGuard hold;
    switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        if (!service->stopInterlockPtr) {
            service->InformSCMgr(SERVICE_STOPPED, 0, 0);
        } else if (loadFlag(service->stopAllowed)) {
            DWORD hint = service->stopTimeout > kStopHintFloor ? service->stopTimeout : kStopHintFloor;
            service->InformSCMgr(SERVICE_STOP_PENDING, hint, 1);
            service->stopInterlockPtr->MakeRequest();
            storeFlag(service->stopAllowed, FALSE);
        } else {
            service->InformSCMgr(SERVICE_STOP_PENDING, 0, 1);
        }
        break;
    case SERVICE_CONTROL_PAUSE:
        if (loadFlag(service->paused)) {
            service->InformSCMgr(SERVICE_PAUSED, 0, 0);
            storeFlag(service->continueAllowed, TRUE);
            if (service->pauseInterlockPtr)
                service->pauseInterlockPtr->ResetInterlock();
        } else if (!service->pauseInterlockPtr) {
            service->InformSCMgr(SERVICE_STOPPED, 0, 0);
        } else if (loadFlag(service->pauseAllowed)) {
            service->InformSCMgr(SERVICE_PAUSE_PENDING, service->pauseTimeout, 1);
            service->pauseInterlockPtr->MakeRequest();
            storeFlag(service->pauseAllowed, FALSE);
        } else {
            service->InformSCMgr(SERVICE_PAUSE_PENDING, 0, 1);
        }
        break;
    case SERVICE_CONTROL_CONTINUE:
        if (!loadFlag(service->paused)) {
            service->InformSCMgr(SERVICE_RUNNING, 0, 0);
            storeFlag(service->pauseAllowed, TRUE);
            if (service->continueInterlockPtr)
                service->continueInterlockPtr->ResetInterlock();
        } else if (!service->continueInterlockPtr) {
            service->InformSCMgr(SERVICE_STOPPED, 0, 0);
        } else if (loadFlag(service->continueAllowed)) {
            service->InformSCMgr(SERVICE_CONTINUE_PENDING, service->continueTimeout, 1);
            service->continueInterlockPtr->MakeRequest();
            storeFlag(service->continueAllowed, FALSE);
        } else {
            service->InformSCMgr(SERVICE_CONTINUE_PENDING, 0, 1);
        }
        break;
    default: // interrogate, and codes this service does not know
        service->InformSCMgr(loadWord(service->serviceStatus.dwCurrentState), 0, 0);
        break;
    }
}

BOOL WINAPI GenericService::ConsoleControlHandler(DWORD eventType)
{
    // Held through the call: the object cannot go while the event is on it.
    HandlersGuard hold;
    GenericService *service = primaryServicePtr;
    if (!service)
        return 0;
    if (service->runAsService == 0) {
        switch (eventType) {
        case CTRL_C_EVENT:
        case CTRL_BREAK_EVENT:
        case CTRL_CLOSE_EVENT:
        case CTRL_LOGOFF_EVENT:
        case CTRL_SHUTDOWN_EVENT:
            service->StopService();
            return 1;
        default:
            return 0;
        }
    }
    if (eventType == CTRL_SHUTDOWN_EVENT)
        service->StopService();
    return 0;
}
