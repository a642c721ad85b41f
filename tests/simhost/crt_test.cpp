#include "simhost/crt/crt.h"

#include <gtest/gtest.h>

namespace {

TEST(Crt, WcsicmpFoldsAsciiLettersOnly) {
    EXPECT_EQ(_wcsicmp(L"INSTALL", L"install"), 0);
    EXPECT_EQ(_wcsicmp(L"Install", L"iNSTALL"), 0);
    EXPECT_EQ(_wcsicmp(L"runFromCommandLine", L"RUNFROMCOMMANDLINE"), 0);
    EXPECT_LT(_wcsicmp(L"abc", L"abd"), 0);
    EXPECT_GT(_wcsicmp(L"abcd", L"ABC"), 0);
    EXPECT_LT(_wcsicmp(L"", L"a"), 0);
    EXPECT_NE(_wcsicmp(L"\u00c9", L"\u00e9"), 0);
}

}  // namespace
