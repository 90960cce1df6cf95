// Which names a profile can have, and how one is called whose stored name is none of them.
#pragma once

#include <functional>
#include <string>
#include <string_view>

/// @return true for a text of 1 to 63 bytes of UTF-8 without a NUL.
bool isNameText(std::string_view name);

/// @return true for a name that a profile can have: a name text without a slash, at which the paths
///         of a management tree are split, that is not ".", ".." or "*", which no address there
///         has for the name of a node.
bool isProfileName(std::string_view name);

/// @param storedName  UTF-8 of any length, such as "Office/Home"
/// @param mark        a short ASCII text that tells the profile from every other one
/// @param isTaken     whether another profile goes by that name
/// @return the name of a profile that cannot go by its stored name: that, with a hyphen for each
///         slash and cut at a character to fit ("unnamed" for an empty one), with '~' and the mark
///         after it: "Office-Home~7". When that is taken "~2" follows, "~3" and so on.
std::string substituteName(std::string_view storedName, const std::string &mark,
                           const std::function<bool(std::string_view)> &isTaken);
