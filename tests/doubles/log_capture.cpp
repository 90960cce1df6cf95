#include "log_capture.h"

#include "aplog.h"

#include <regex>

extern "C" {
FILE *libaplog_to_module_ptr = nullptr;
}

namespace doubles {

namespace {

const std::regex &Prefix()
{
    static const std::regex prefix(R"(\((DM_Napi_\w+\.cpp):[0-9]+\))");
    return prefix;
}

} // namespace

LogCapture::LogCapture() : m_stream(open_memstream(&m_buffer, &m_size))
{
    libaplog_to_module_ptr = m_stream;
}

LogCapture::~LogCapture()
{
    libaplog_to_module_ptr = nullptr;
    std::fclose(m_stream);
    std::free(m_buffer);
}

std::string LogCapture::Text() const
{
    std::fflush(m_stream);
    return std::regex_replace(std::string(m_buffer + m_taken, m_size - m_taken), Prefix(),
                              "($1:#)");
}

std::vector<std::string> LogCapture::Messages() const
{
    static const std::regex start(R"(\(DM_Napi_\w+\.cpp:#\))");
    const std::string text = Text();
    std::vector<std::string> messages;
    std::size_t begin = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), start), end; it != end; ++it) {
        const auto position = static_cast<std::size_t>(it->position());
        if (position > begin)
            messages.push_back(text.substr(begin, position - begin));
        begin = position;
    }
    if (begin < text.size())
        messages.push_back(text.substr(begin));
    return messages;
}

std::vector<std::string> LogCapture::Take()
{
    std::vector<std::string> messages = Messages();
    m_taken = m_size;
    return messages;
}

} // namespace doubles
