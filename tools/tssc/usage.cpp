// tssc's usage texts.
#include "command.h"

namespace tssc {

namespace {

const char kGeneral[] =
    "DESCRIPTION:\n"
    "        tssc is a command line program used for communicating with the\n"
    "        service manager and services.\n"
    "USAGE:\n"
    "        tssc <command> [service name] <option1> <option2>...\n"
    "\n"
    "        Commands:\n"
    "          query-----------Queries the status for a service, or\n"
    "                          enumerates the status for types of services.\n"
    "          queryex---------Queries the extended status for a service, or\n"
    "                          enumerates the status for types of services.\n"
    "          start-----------Starts a service.\n"
    "          pause-----------Sends a PAUSE control request to a service.\n"
    "          interrogate-----Sends an INTERROGATE control request to a service.\n"
    "          continue--------Sends a CONTINUE control request to a service.\n"
    "          stop------------Sends a STOP request to a service.\n"
    "          config----------Changes the configuration of a service (persistent).\n"
    "          description-----Changes the description of a service.\n"
    "          qc--------------Queries the configuration information for a service.\n"
    "          qdescription----Queries the description for a service.\n"
    "          delete----------Deletes a service (from the registry).\n"
    "          create----------Creates a service (adds it to the registry).\n"
    "          getdisplayname--Gets the DisplayName for a service.\n"
    "          getkeyname------Gets the ServiceKeyName for a service.\n";

const char kConfigOptions[] =
    "OPTIONS:\n"
    "NOTE: The option name includes the equal sign.\n"
    "      A space is required between the equal sign and the value.\n"
    " type= <own|share|interact>  (default = own)\n"
    " start= <demand|auto|disabled|delayed-auto>  (default = demand)\n"
    " error= <normal|severe|critical|ignore>  (default = normal)\n"
    " binPath= <BinaryPathName to the program>\n"
    " group= <LoadOrderGroup>\n"
    " depend= <Dependencies(separated by / (forward slash))>\n"
    " obj= <AccountName|ObjectName>  (default = LocalSystem)\n"
    " DisplayName= <display name>\n"
    " password= <password>\n"
    " description= <description>\n";

const char kQueryOptions[] =
    "OPTIONS:\n"
    "NOTE: The option name includes the equal sign.\n"
    "      A space is required between the equal sign and the value.\n"
    " type=    Type of services to enumerate (service, own, share, interact, all)\n"
    "          (default = service)\n"
    " state=   State of services to enumerate (active, inactive, all)\n"
    "          (default = active)\n"
    " bufsize= The size (in bytes) of the enumeration buffer\n"
    "          (default = 4096)\n"
    " ri=      The resume index number at which to begin the enumeration\n"
    "          (default = 0)\n";

} // namespace

std::string usageText(ParseResult result, const Command &c)
{
    if (result == ParseResult::Usage)
        return kGeneral;
    auto verb = [](const char *what, const char *line) {
        return std::string("DESCRIPTION:\n        ") + what + "\nUSAGE:\n        tssc " + line + "\n";
    };
    switch (c.verb) {
    case Command::Create:
        return verb("Creates a service entry in the registry and service database.",
                    "create [service name] [binPath= ] <option1> <option2>...") +
               "\n" + kConfigOptions;
    case Command::Config:
        return verb("Modifies a service entry in the registry and service database.",
                    "config [service name] <option1> <option2>...") +
               "\n" + kConfigOptions;
    case Command::Description: return verb("Sets the description string for a service.", "description [service name] [description]");
    case Command::Qc: return verb("Queries the configuration information for a service.", "qc [service name] <bufferSize>");
    case Command::QDescription: return verb("Retrieves the description string of a service.", "qdescription [service name] <bufferSize>");
    case Command::GetDisplayName: return verb("Gets the display name associated with a particular service.", "getdisplayname [service key name] <bufferSize>");
    case Command::GetKeyName: return verb("Gets the key name associated with a particular service, using the display name as input.", "getkeyname [service display name] <bufferSize>");
    case Command::Query:
    case Command::QueryEx:
        return verb("Obtains and displays information about the specified service, or services of a type.",
                    c.verb == Command::Query ? "query [service name] | [option= value...]"
                                             : "queryex [service name] | [option= value...]") +
               "\n" + kQueryOptions;
    case Command::Start: return verb("Starts a service running.", "start [service name] <arg1> <arg2> ...");
    case Command::Stop: return verb("Sends a STOP control request to a service.", "stop [service name]");
    case Command::Pause: return verb("Sends a PAUSE control request to a service.", "pause [service name]");
    case Command::Continue: return verb("Sends a CONTINUE control request to a service.", "continue [service name]");
    case Command::Interrogate: return verb("Sends an INTERROGATE control request to a service.", "interrogate [service name]");
    case Command::Delete: return verb("Deletes a service entry from the registry.", "delete [service name]");
    }
    return kGeneral;
}

} // namespace tssc
