// Quoted texts of a recording: any bytes on one line, readable where they can be printed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tools::recording {

/// Appends @p bytes in double quotes. Printable ASCII and valid UTF-8 stay as they are; other bytes become \n, \r, \t, \", \\ or
/// \xNN.
void appendQuoted(std::string &line, std::string_view bytes);

/// Removes a quoted text from the front of @p rest and returns its bytes. Returns nullopt if @p rest does not begin with a complete
/// quoted text; @p rest then begins at the fault.
std::optional<std::string> takeQuoted(std::string_view &rest);

}  // namespace tools::recording
