// The messages of the code under test.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace doubles {

/// Stands for the log stream while it lives: the handset's stream pointer leads into memory.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// Everything that was logged since the last Take, byte for byte, but for the line number in
    /// each message's prefix: "(DM_Napi_PluginTree.cpp:#)Leave: ...".
    std::string Text() const;

    /// The same, one element a message, line ends included.
    std::vector<std::string> Messages() const;

    /// As Messages, and starts the next page.
    std::vector<std::string> Take();

private:
    std::FILE *m_stream = nullptr;
    char *m_buffer = nullptr;
    std::size_t m_size = 0;
    std::size_t m_taken = 0;
};

} // namespace doubles
