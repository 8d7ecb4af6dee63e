// Reads tables of a TOML document key by key. Errors name the file, the line and the key.
#pragma once

#include "kvosim/plant/station_keys.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The parser's assertions can fail for an invalid file (such as "[[["). Without them, it reports the mistake as an error one
// step later: a mistake in a file must not abort the program.
#define TOML_ASSERT(expression) static_assert(true)
#include <toml++/toml.h>

namespace kvosim {

class TableReader {
public:
    using Keys = std::vector<std::string_view>;
    static constexpr uint32_t kHighest = 0xFFFFFFFF;

    /// @p where names the table in messages; it is empty for the document itself. A key that is not in @p keys is an error.
    TableReader(std::string_view fileName, std::string where, const toml::table &table, const Keys &keys);

    /// The text of @p key, or @p absent if the key is missing. Without @p absent, a missing key is an error.
    [[nodiscard]] std::string text(std::string_view key, std::optional<std::string> absent = {}) const;
    [[nodiscard]] uint32_t number(std::string_view key, uint32_t absent, uint32_t highest = kHighest) const;
    /// A number or a text; nothing if the key is absent.
    [[nodiscard]] std::optional<Value> value(std::string_view key) const;
    /// Exactly @p N numbers; zeros if the key is absent.
    template <std::size_t N>
    [[nodiscard]] std::array<uint32_t, N> numbers(std::string_view key) const
    {
        std::array<uint32_t, N> values{};
        readNumbers(key, values.data(), N);
        return values;
    }
    /// The table [key]; nothing if it is absent.
    [[nodiscard]] std::optional<TableReader> table(std::string_view key, const Keys &keys) const;
    /// All tables [[key]].
    [[nodiscard]] std::vector<TableReader> tables(std::string_view key, const Keys &keys) const;

    /// The names of all keys in the table.
    [[nodiscard]] Keys names() const;
    /// The line where the table begins.
    [[nodiscard]] unsigned line() const noexcept { return table_->source().begin.line; }
    /// Throws PlantFileError about a key of this table.
    [[noreturn]] void fail(std::string_view key, const std::string &what) const;

private:
    [[noreturn]] void failAt(unsigned line, std::string_view key, const std::string &what) const;
    [[nodiscard]] uint32_t numberOf(const toml::node &node, std::string_view key, uint32_t highest) const;
    void readNumbers(std::string_view key, uint32_t *values, std::size_t count) const;
    [[nodiscard]] std::string pathOf(std::string_view key) const;

    std::string_view fileName_;
    std::string where_;
    const toml::table *table_;
};

/// A parsed document. Its readers must not outlive it.
class Document {
public:
    Document(std::string_view text, std::string_view fileName);

    [[nodiscard]] TableReader top(const TableReader::Keys &keys) const { return {fileName_, "", table_, keys}; }
    [[nodiscard]] bool has(std::string_view key) const { return table_.contains(key); }
    /// Moves all keys of @p other except @p except into this document. Returns false if one of them already exists here.
    [[nodiscard]] bool mergeExcept(std::string_view except, Document &other);

private:
    std::string fileName_;
    toml::table table_;
};

}  // namespace kvosim
