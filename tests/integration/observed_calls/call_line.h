// How a call of the profile service or of the settings files is written as a line. The witness and
// the observer write the same of a call when they have seen the same.
#pragma once

#include "napi.h"

#include <QString>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

/// The arguments and outcome of a call that both see; what one of them has no text for is empty.
struct CallLine {
    std::string_view function;
    std::string profile = {};
    std::optional<unsigned int> id = {};
    std::optional<unsigned int> count = {};
    int status = 0;
    const NAP_PROFILE_S *record = nullptr; ///< that was read, or stored
    QString file = {};
    QString group = {};
    QString key = {};
    QString value = {};
};

inline void writeLine(std::FILE *file, const CallLine &line)
{
    const auto shown = [](const QString &text) {
        return text.isNull() ? std::string("null") : '"' + text.toStdString() + '"';
    };
    const auto number = [](std::optional<unsigned int> of) {
        return of ? std::to_string(*of) : std::string("-");
    };
    std::string text(line.function);
    text += " \"" + line.profile + "\" id " + number(line.id) + " count " + number(line.count) +
            " = " + std::to_string(line.status) + ' ' + shown(line.file) + ' ' + shown(line.group) +
            ' ' + shown(line.key) + ' ' + shown(line.value) + ' ';
    const auto *const bytes = reinterpret_cast<const unsigned char *>(line.record);
    for (std::size_t index = 0; line.record && index < sizeof *line.record; ++index) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[index]);
        text += digits;
    }
    std::fprintf(file, "%s\n", text.c_str());
    std::fflush(file);
}
