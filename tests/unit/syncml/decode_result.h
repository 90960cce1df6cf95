// Taking the result of a decoder apart in a test.
#pragma once

#include "codec_result.h"

#include <gtest/gtest.h>
#include <string>

namespace decode_result {

/// The message; a failed test and an empty message when there is none.
inline syncml::Message message(const syncml::DecodeResult &result)
{
    if (!result) {
        ADD_FAILURE() << result.error().status << ' ' << result.error().toString().toStdString();
        return {};
    }
    return *result;
}

/// Status and text of the error, as in "400 text where only elements can stand".
inline std::string error(const syncml::DecodeResult &result)
{
    return result ? "no error"
                  : std::to_string(result.error().status) + ' ' + result.error().text.toStdString();
}

} // namespace decode_result
