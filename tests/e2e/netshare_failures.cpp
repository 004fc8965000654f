// NetShare's failure table, row by row, in a program whose platform calls
// fail as the row needs (children/netshare_probe): the message and where it
// goes, the result, the calls of the account lookup, and every heap block
// given back. No share is touched, so both legs run every row.
#include "TestSupport.h"

#include <string>

namespace {

struct Row {
    const char *operation, *fault;
    const char *printed; // the probe's whole standard output
};

std::string Probe(const Row &row)
{
    std::string out;
    EXPECT_EQ(tstest::RunCaptured("netshare_probe", std::string(row.operation) + " " + row.fault, out), 0)
        << row.operation << " " << row.fault;
    // The Windows runtime's text mode: CR LF becomes LF.
    for (size_t at; (at = out.find("\r\n")) != std::string::npos;)
        out.erase(at, 1);
    return out;
}

TEST(NetShareFailureTest, EachRowGivesItsMessageAndResultAndFreesEveryBlock)
{
    const Row rows[] = {
        {"add", "none", "result 1 blocks 0 lookups 1\n"},
        {"add", "heapalloc", "HeapAlloc error!\nresult 0 blocks 0 lookups 0\n"},
        {"add", "heaprealloc", "HeapReAlloc error!\nresult 0 blocks 0 lookups 1\n"},
        {"add", "unknown-account", "LookupAccountName error! (rc=1332)\nresult 0 blocks 0 lookups 1\n"},
        // The domain's room does not grow: the second try fails alike.
        {"add", "domain", "LookupAccountName error! (rc=122)\nresult 0 blocks 0 lookups 2\n"},
        {"add", "setdacl", "result 0 blocks 0 lookups 1\nstderr: SetSecurityDescriptorDacl error! (rc=87)\n"},
        {"add", "aclalloc", "result 0 blocks 0 lookups 1\n"},
        {"add", "initacl", "result 0 blocks 0 lookups 1\n"},
        {"add", "addace", "result 0 blocks 0 lookups 1\n"},
        {"add", "initsd", "result 0 blocks 0 lookups 1\n"},
        {"delete", "none", "result 1 blocks 0 lookups 1\n"},
        {"delete", "heapalloc", "HeapAlloc error!\nresult 0 blocks 0 lookups 0\n"},
        {"delete", "heaprealloc", "HeapReAlloc error!\nresult 0 blocks 0 lookups 1\n"},
        {"delete", "unknown-account", "LookupAccountName error! (rc=1332)\nresult 0 blocks 0 lookups 1\n"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(Probe(row), row.printed) << row.operation << " " << row.fault;
}

// The nine codes of failure, silent; any other code is success for Add and
// Delete, and for IsShared no record to read.
TEST(NetShareFailureTest, OnlyTheNineCodesAreFailures)
{
    const char *failures[] = {"5", "8", "87", "123", "124", "2116", "2117", "2118", "2310"};
    for (const char *code : failures) {
        std::string fault = std::string("code-") + code;
        EXPECT_EQ(Probe({"add", fault.c_str(), nullptr}), "result 0 blocks 0 lookups 1\n") << code;
        EXPECT_EQ(Probe({"delete", fault.c_str(), nullptr}), "result 0 blocks 0 lookups 1\n") << code;
        EXPECT_EQ(Probe({"isshared", fault.c_str(), nullptr}), "result 0 blocks 0 lookups 0\n") << code;
    }
    EXPECT_EQ(Probe({"add", "code-53", nullptr}), "result 1 blocks 0 lookups 1\n");
    EXPECT_EQ(Probe({"delete", "code-53", nullptr}), "result 1 blocks 0 lookups 1\n");
    EXPECT_EQ(Probe({"isshared", "code-53", nullptr}), "result 0 blocks 0 lookups 0\n");
}

} // namespace
