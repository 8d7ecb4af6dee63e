// Joins words with a separator between them.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tools {

/// Appends a word to a list, after a separator unless the list is empty.
inline void appendTo(std::string &list, std::string_view separator, std::string_view word)
{
    if (!list.empty()) {
        list.append(separator);
    }
    list.append(word);
}

/// The elements of @p words with a separator between them. @p text converts an element to text, if it is of another type.
template <class Words, class Text = std::identity>
[[nodiscard]] std::string join(const Words &words, std::string_view separator, Text text = {})
{
    std::string list;
    for (const auto &word : words) {
        appendTo(list, separator, std::invoke(text, word));
    }
    return list;
}

}  // namespace tools
