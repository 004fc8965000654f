// The library's frame: the constants' exact values, and the module entry's
// registration with the framework.
#include <TSUtil.h>
#include <afxdll_.h>

#include "TestSupport.h"

#include <cstdint>
#include <cstring>

namespace {
uint64_t Bits(double d)
{
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
}
} // namespace

// The constants keep the values the library has always had: pi to ten
// digits, not a double's nearest pi.
TEST(FrameTest, ConstantsHoldTheirExactValues)
{
    EXPECT_EQ(Bits(ZERO64), 0u);
    EXPECT_EQ(Bits(MATH_PI), 0x400921FB54524550u);
    EXPECT_EQ(Bits(NUMERIC_EPS), 0x3CD203AF9EE75616u);
}

// Loading the library registered it with the framework: one extension
// library of its module is wired in, and the module state has a current
// resource handle.
TEST(FrameTest, LoadRegistersTheLibraryAsAnExtensionModule)
{
    AFX_MODULE_STATE *state = AfxGetModuleState();
    ASSERT_NE(state, nullptr);
    EXPECT_NE(AfxGetResourceHandle(), nullptr);
    ASSERT_NE(state->m_libraryList, nullptr);
    HMODULE library = state->m_libraryList->m_hModule;
    EXPECT_NE(library, nullptr);
    EXPECT_EQ(state->m_libraryList->m_hResource, library);
    EXPECT_EQ(AfxCountDynLinkLibraries(library), 1);
}

