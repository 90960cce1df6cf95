// The log stream: one pointer that a program and the modules it loads share.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "aplog.h"

namespace {

TEST(LogStream, IsNullUntilTheProgramSetsIt)
{
    EXPECT_EQ(libaplog_to_module_ptr, nullptr);
}

TEST(LogStream, AModuleSeesWhatTheProgramSet)
{
    libaplog_to_module_ptr = stderr;
    void *library = ::dlopen("libaplog.so.1.0.0", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << ::dlerror();
    auto *seenByModule = static_cast<FILE **>(::dlsym(RTLD_DEFAULT, "libaplog_to_module_ptr"));
    ASSERT_NE(seenByModule, nullptr);
    EXPECT_EQ(*seenByModule, stderr);
    ::dlclose(library);
    libaplog_to_module_ptr = nullptr;
}

} // namespace
