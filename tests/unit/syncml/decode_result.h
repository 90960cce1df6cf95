// Taking the result of a decoder apart in a test.
#pragma once

#include "codec_result.h"

#include <gtest/gtest.h>
#include <string>

namespace decode_result {

/// The message; a failed test and an empty message when there is none.
inline syncml::Message message(const syncml::DecodeResult &result)
{
    if (const auto *const error = std::get_if<syncml::DecodeError>(&result)) {
        ADD_FAILURE() << error->status << ' ' << error->toString().toStdString();
        return {};
    }
    return std::get<syncml::Message>(result);
}

/// Status and text of the error, as in "400 text where only elements can stand".
inline std::string error(const syncml::DecodeResult &result)
{
    const auto *const error = std::get_if<syncml::DecodeError>(&result);
    return error ? std::to_string(error->status) + ' ' + error->text.toStdString() : "no error";
}

} // namespace decode_result
