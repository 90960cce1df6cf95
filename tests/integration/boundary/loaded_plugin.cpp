#include "loaded_plugin.h"

#include "aplog.h"
#include "dmnative/dmt_plugin_api.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

/// A state directory of this process alone, and a log file in it. The host libraries look at the
/// environment at their first call.
class PrivateState : public ::testing::Environment {
public:
    static std::string directory;

    void SetUp() override
    {
        std::string path = testing::TempDir() + "kub-boundary-XXXXXX";
        ASSERT_NE(mkdtemp(path.data()), nullptr) << path;
        directory = path;
        ASSERT_EQ(setenv("KUB_STATE_DIR", directory.c_str(), 1), 0);
        m_log = std::fopen((directory + "/plugin.log").c_str(), "w");
        ASSERT_NE(m_log, nullptr);
        libaplog_to_module_ptr = m_log;
    }
    void TearDown() override
    {
        libaplog_to_module_ptr = nullptr;
        std::fclose(m_log);
        std::filesystem::remove_all(directory);
    }

private:
    std::FILE *m_log = nullptr;
};

std::string PrivateState::directory;

[[maybe_unused]] const ::testing::Environment *const STATE =
    ::testing::AddGlobalTestEnvironment(new PrivateState);

template <class Function>
Function *Symbol(void *library, const char *name)
{
    void *const symbol = dlsym(library, name);
    EXPECT_NE(symbol, nullptr) << dlerror();
    Function *function;
    std::memcpy(&function, &symbol, sizeof function);
    return function;
}

} // namespace

LoadedPlugin::LoadedPlugin() : m_library(dlopen(KUB_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL))
{
    if (!m_library) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
}

LoadedPlugin::~LoadedPlugin()
{
    EXPECT_EQ(dlclose(m_library), 0);
}

int LoadedPlugin::Version() const
{
    return Symbol<int()>(m_library, "DMT_PluginLib_GetAPIVersion")();
}

int LoadedPlugin::Mount(const char *root, JemSmartPtr<DmtPluginTree> &tree) const
{
    return Symbol<int(const char *, void *, JemSmartPtr<DmtPluginTree> &)>(
        m_library, "DMT_PluginLib_Data_GetPluginTree")(root, nullptr, tree);
}

bool LoadedPlugin::IsInMemory()
{
    void *const library = dlopen(KUB_PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library != nullptr;
}

std::string Output(const std::string &command)
{
    std::string output;
    std::FILE *const pipe = popen(command.c_str(), "r");
    if (!pipe) {
        ADD_FAILURE() << command;
        return output;
    }
    std::array<char, 4096> buffer;
    for (std::size_t size; (size = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        output.append(buffer.data(), size);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

std::string FileContent(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

const std::string &StateDirectory()
{
    return PrivateState::directory;
}

NAP_PROFILE_S Record(const char *gprs, const char *csd, const char *csd2)
{
    NAP_PROFILE_S record{};
    std::strncpy(record.gprsAddress, gprs, sizeof record.gprsAddress - 1);
    std::strncpy(record.csdAddress, csd, sizeof record.csdAddress - 1);
    std::strncpy(record.csd2Address, csd2, sizeof record.csd2Address - 1);
    return record;
}

std::string StoreProfile(const char *name, const NAP_PROFILE_S &record)
{
    unsigned int id = 0;
    EXPECT_EQ(NAPI_CreateProfile(name, &record, 0, 0), 0) << name;
    EXPECT_EQ(NAPI_GetProfileIDByName(name, &id), 0) << name;
    return std::to_string(id);
}
