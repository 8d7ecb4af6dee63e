// Texts in TOML documents, which plant files are.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tools {

/// @p text as a string of TOML, between double quotes. Characters that do not show are escaped. @p text is valid UTF-8.
std::string tomlQuoted(std::string_view text);

/// Returns the replacement of a string, or nothing if it stays. @p key is the last part of the key whose value it is or belongs to.
using ReplaceString = std::function<std::optional<std::string>(std::string_view key, std::string_view text)>;

/// The document with other strings, without its comments and what precedes them in their lines. Everything else stays as it is. If a
/// string is not complete, the document ends before it.
std::string replaceStrings(std::string_view toml, const ReplaceString &replace);

}  // namespace tools
