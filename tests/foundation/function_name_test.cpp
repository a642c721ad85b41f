#include "foundation/StaticLogger.h"

#include <gtest/gtest.h>

#include <string>

namespace {

template <size_t N>
std::string nameOf(const char (&signature)[N]) {
    return logging_detail::QualifiedName<N>(signature).c_str();
}

TEST(FunctionName, GccAndClangSignatures) {
    EXPECT_EQ(nameOf("virtual void VexorPrintingService::OnStart(DWORD, LPWSTR*)"), "VexorPrintingService::OnStart");
    EXPECT_EQ(nameOf("VexorPrintingService::VexorPrintingService()"), "VexorPrintingService::VexorPrintingService");
    EXPECT_EQ(nameOf("virtual VexorPrintingService::~VexorPrintingService()"),
              "VexorPrintingService::~VexorPrintingService");
    EXPECT_EQ(nameOf("std::string PrinterUtil::getPrinter(const std::wstring&)"), "PrinterUtil::getPrinter");
    EXPECT_EQ(nameOf("char* PrinterUtil::copy(const char*)"), "PrinterUtil::copy");
    EXPECT_EQ(nameOf("const std::map<int, std::basic_string<char> >& Catalogue::get() const"), "Catalogue::get");
    EXPECT_EQ(nameOf("int PrinterUtil::f(T) [with T = double]"), "PrinterUtil::f");
    EXPECT_EQ(nameOf("int main()"), "main");
}

TEST(FunctionName, MsvcSignature) {
    EXPECT_EQ(nameOf("void __cdecl VexorPrintingService::OnStart(unsigned long,wchar_t **)"),
              "VexorPrintingService::OnStart");
}

TEST(FunctionName, AnonymousNamespaces) {
    EXPECT_EQ(nameOf("void {anonymous}::helper(int)"), "{anonymous}::helper");
    EXPECT_EQ(nameOf("void (anonymous namespace)::helper(int)"), "(anonymous namespace)::helper");
}

TEST(FunctionName, IsComputedAtCompileTime) {
    static constexpr logging_detail::QualifiedName<sizeof("void A::b(int)")> name("void A::b(int)");
    static_assert(name.c_str()[0] == 'A' && name.c_str()[3] == 'b' && name.c_str()[4] == '\0', "A::b");
    EXPECT_STREQ(name.c_str(), "A::b");
}

}  // namespace
