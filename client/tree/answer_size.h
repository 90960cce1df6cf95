// How much the client says at most in answer to a server.
#pragma once

#include "message.h"

namespace client {

/// Bytes of answers that wait to be sent; a result that would go beyond is answered 413 instead. As
/// large as the largest message that is read, so a server is told as much at once as it may say.
inline constexpr qsizetype mostAnswerBytes = 4 * 1024 * 1024;

/// What one item, one node of a listing or one status counts beside its addresses and its value.
inline constexpr qsizetype bytesBesideTexts = 100;

/// What an answer counts, in bytes: about what it takes in a message, and not less than the size of
/// its texts.
qsizetype answerBytes(const syncml::Item &item);
qsizetype answerBytes(const syncml::Command &answer);

} // namespace client
