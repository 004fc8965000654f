// A test that installs a program beside it as a service of its own under
// the service manager and starts it. The installation's settings live in
// HKLM, which a service reads whichever account it runs as, with
// diagnostics allowed. The service is stopped and removed afterwards, and
// on POSIX the manager is stopped.
#pragma once

#include "DiagFixture.h"
#include "ServiceFixture.h"

#include <string>

namespace tstest {

class ServiceProbeTest : public DiagTest {
protected:
    ServiceProbeTest() { hive_ = HKEY_LOCAL_MACHINE; }
    void SetUp() override
    {
        DiagTest::SetUp();
        scm_ = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(scm_, nullptr) << "no service manager, error " << GetLastError();
        CreateKey("Diagnostics");
        SetDword("Diagnostics", "AllowDiagnostics", 1);
    }
    void TearDown() override
    {
        if (service_) {
            SERVICE_STATUS s{};
            ControlService(service_, SERVICE_CONTROL_STOP, &s);
            ServiceTest::WaitForState(service_, SERVICE_STOPPED);
            DeleteService(service_);
            CloseServiceHandle(service_);
        }
        if (scm_)
            CloseServiceHandle(scm_);
        if (RunningOnPosix()) {
            EXPECT_EQ(StopManager(), 0);
        }
        DiagTest::TearDown();
    }

    // Installs program, with words after it on its command line, as the
    // service name, and starts it.
    void InstallAndStart(const std::string &name, const std::string &program, const std::string &words)
    {
        std::string command = "\"" + SiblingProgram(program) + "\" " + words;
        service_ = CreateServiceA(scm_, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                  SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr,
                                  nullptr, nullptr, nullptr);
        ASSERT_NE(service_, nullptr) << "CreateServiceA, error " << GetLastError();
        ASSERT_NE(StartServiceA(service_, 0, nullptr), 0) << "StartServiceA, error " << GetLastError();
    }

    // The file's text once it ends with last, or as it is after kWaitBound.
    std::string AwaitEnding(const std::string &file, const std::string &last)
    {
        std::string text;
        Eventually([&] {
            text = Content(file);
            return text.size() >= last.size() && text.compare(text.size() - last.size(), last.size(), last) == 0;
        });
        return text;
    }

    SC_HANDLE scm_ = nullptr;
    SC_HANDLE service_ = nullptr;
};

} // namespace tstest
