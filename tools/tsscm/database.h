// The service database: HKLM\SYSTEM\CurrentControlSet\Services\<name>, one
// key per service with ImagePath, DisplayName, Type, Start, ErrorControl,
// ObjectName, Group, DependOnService, DependOnGroup, Description and
// DelayedAutostart, as Windows keeps it. All text is UTF-8 here.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tsscm {

struct ServiceConfig {
    std::string name; // the key's own spelling
    std::string imagePath;
    std::string displayName;
    DWORD type = 0;
    DWORD start = SERVICE_DEMAND_START;
    DWORD errorControl = SERVICE_ERROR_NORMAL;
    std::string account;
    std::string group;                     // Group: its load order group
    std::vector<std::string> dependOnService; // DependOnService
    std::vector<std::string> dependOnGroup;   // DependOnGroup
    std::string description;
    bool delayedAutostart = false;
};

// Where the manager keeps its services. The daemon keeps them in the
// registry; a test of the manager may keep them in memory.
class ServiceDatabase {
public:
    virtual ~ServiceDatabase() = default;
    // The service's entry, found without regard to case; false when there
    // is no such entry or it is not a Win32 service.
    virtual bool readService(const std::string &name, ServiceConfig &out) = 0;
    // Every Win32 service, in the order the store gives them.
    virtual std::vector<ServiceConfig> readAllServices() = 0;
    // Writes the entry of config's name, made when missing, replacing its
    // values (an empty group, description or list is removed); a registry
    // error code on failure.
    virtual LONG writeService(const ServiceConfig &config) = 0;
    // Removes the entry and everything below it.
    virtual LONG deleteService(const std::string &name) = 0;
    // A DWORD below HKLM\SYSTEM\CurrentControlSet\Control, or fallback.
    virtual DWORD readControlValue(const char *value, DWORD fallback) = 0;
};

// The database in the registry of the machine root.
class RegistryDatabase : public ServiceDatabase {
public:
    bool readService(const std::string &name, ServiceConfig &out) override;
    std::vector<ServiceConfig> readAllServices() override;
    LONG writeService(const ServiceConfig &config) override;
    LONG deleteService(const std::string &name) override;
    DWORD readControlValue(const char *value, DWORD fallback) override;
};

} // namespace tsscm
