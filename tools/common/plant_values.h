// What plant files accept as names and texts. The simulator checks with these functions; a capture writes nothing else.
#pragma once

#include <kvo_hws/codecs.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace tools {

/// The longest name that fits into a description, in bytes.
inline constexpr std::size_t kLongestName = sizeof(ConnectionEntry::name) - 1;
inline constexpr std::size_t kLongestChannelInfo = 230;  // bytes
inline constexpr std::size_t kLongestVersion = 255;      // bytes

/// Written instead of a number for which the plant gives no value.
inline constexpr std::string_view kNoValue = "none";

bool hasControlCharacter(std::string_view text);
/// Whether a name or a device in the connector list may contain @p character.
bool isConnectorCharacter(char character);

/// What is wrong with the name of a station or a client, and what is valid; empty if it is valid.
std::string mistakeInName(std::string_view name);

bool isVersion(std::string_view text);
/// Any line of at most 255 bytes.
bool isLine(std::string_view text);
/// A line that is the whole reply to a request.
bool isReplyText(std::string_view text);
bool isChannelInfo(std::string_view text);
/// "1:2": two numbers of 32 bits.
bool isPair(std::string_view text);
/// "SERVER:DISPLAY", or empty.
bool isViewer(std::string_view text);
/// "LOCK:PRIORITY", each of which may be missing, or empty.
bool isPriority(std::string_view text);
/// "NAME:DEVICE NAME:DEVICE", or empty.
bool areConnectors(std::string_view text);
bool isLayout(std::string_view text);

}  // namespace tools
