// A service's configuration on the manager's wire (svcwire.h): the Create
// and ChangeConfig requests after their operation word (and ChangeConfig's
// service id), and the QueryConfig reply after its result word. The client
// calls write the requests and read the reply; the daemon the other way
// round. Text is UTF-8.
#pragma once

#include "svcwire.h"

#include <optional>
#include <string>
#include <vector>

namespace tsp::svc {

// CreateService's service.
struct CreateConfig {
    std::string name, display;
    bool hasDisplay = false;
    DWORD type = 0, start = 0, errorControl = 0;
    std::string imagePath, account, group;
    // Services, and groups after SC_GROUP_IDENTIFIERA ('+').
    std::vector<std::string> dependencies;
};

// ChangeServiceConfig and ChangeServiceConfig2: SERVICE_NO_CHANGE and an
// absent value leave the setting as it is.
struct ConfigChange {
    DWORD type = SERVICE_NO_CHANGE, start = SERVICE_NO_CHANGE, errorControl = SERVICE_NO_CHANGE;
    std::optional<std::string> imagePath, account, group, display, description;
    std::optional<std::vector<std::string>> dependencies;
    std::optional<bool> delayedAutostart;
};

// What QueryConfig gives of a service.
struct QueriedConfig {
    DWORD type = 0, start = 0, errorControl = 0;
    std::string imagePath, account, group, display, description;
    bool delayedAutostart = false;
    std::vector<std::string> dependencies; // groups after '+'
};

// The readers are false for a frame that ends early (what they filled in
// is then not to be used).
void writeCreate(Writer &w, const CreateConfig &c);
bool readCreate(Reader &r, CreateConfig &c);
void writeChange(Writer &w, const ConfigChange &c);
bool readChange(Reader &r, ConfigChange &c);
void writeQueried(Writer &w, const QueriedConfig &c);
bool readQueried(Reader &r, QueriedConfig &c);

} // namespace tsp::svc
