// Checks the values of keys and writes the error messages.
#include "kvosim/plant_file/table_reader.h"

#include "common/join.h"
#include "kvosim/plant_file/plant_file_error.h"

#include <algorithm>

namespace kvosim {

namespace {

[[noreturn]] void failIn(std::string_view fileName, unsigned line, const std::string &what)
{
    throw PlantFileError(std::string(fileName) + ':' + std::to_string(line) + ": " + what);
}

toml::table parse(std::string_view text, std::string_view fileName)
{
    try {
        return toml::parse(text, fileName);
    } catch (const toml::parse_error &error) {
        failIn(fileName, error.source().begin.line, "not TOML: " + std::string(error.description()));
    }
}

}  // namespace

Document::Document(std::string_view text, std::string_view fileName) : fileName_(fileName), table_(parse(text, fileName)) {}

bool Document::mergeExcept(std::string_view except, Document &other)
{
    return std::all_of(other.table_.begin(), other.table_.end(), [&](const auto &entry) {
        const auto &[key, node] = entry;
        return key.str() == except || table_.insert(key, std::move(node)).second;
    });
}

TableReader::TableReader(std::string_view fileName, std::string where, const toml::table &table, const Keys &keys)
    : fileName_(fileName), where_(std::move(where)), table_(&table)
{
    for (const auto &[key, node] : table) {
        if (std::find(keys.begin(), keys.end(), key.str()) == keys.end()) {
            failAt(key.source().begin.line, key.str(), "unknown key; known keys: " + tools::join(keys, ", "));
        }
    }
}

std::string TableReader::text(std::string_view key, std::optional<std::string> absent) const
{
    const toml::node *node = table_->get(key);
    if (node == nullptr && absent) {
        return *std::move(absent);
    }
    if (node == nullptr) {
        fail(key, "is missing; write " + std::string(key) + " = \"...\"");
    }
    const auto value = node->value_exact<std::string>();
    if (!value) {
        fail(key, "is not a text; write it in quotes");
    }
    return *value;
}

uint32_t TableReader::number(std::string_view key, uint32_t absent, uint32_t highest) const
{
    const toml::node *node = table_->get(key);
    return node == nullptr ? absent : numberOf(*node, key, highest);
}

std::optional<Value> TableReader::value(std::string_view key) const
{
    const toml::node *node = table_->get(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (const auto number = node->value_exact<int64_t>()) {
        return *number;
    }
    const auto text = node->value_exact<std::string>();
    return text ? Value(*text) : Value();
}

std::optional<TableReader> TableReader::table(std::string_view key, const Keys &keys) const
{
    const toml::node *node = table_->get(key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_table()) {
        fail(key, "is not a table; write [" + pathOf(key) + "] and its keys below it");
    }
    return TableReader(fileName_, pathOf(key), *node->as_table(), keys);
}

std::vector<TableReader> TableReader::tables(std::string_view key, const Keys &keys) const
{
    std::vector<TableReader> readers;
    const toml::node *node = table_->get(key);
    if (node == nullptr) {
        return readers;
    }
    const toml::array *array = node->as_array();
    if (array == nullptr ||
        !std::all_of(array->begin(), array->end(), [](const toml::node &item) { return item.is_table(); })) {
        fail(key, "is not a list of tables; write [[" + pathOf(key) + "]] before the keys of each table");
    }
    readers.reserve(array->size());
    for (const toml::node &item : *array) {
        readers.emplace_back(fileName_, pathOf(key), *item.as_table(), keys);
    }
    return readers;
}

TableReader::Keys TableReader::names() const
{
    Keys names;
    names.reserve(table_->size());
    for (const auto &[key, node] : *table_) {
        names.push_back(key.str());
    }
    return names;
}

void TableReader::fail(std::string_view key, const std::string &what) const
{
    const toml::node *node = table_->get(key);
    failAt(node == nullptr ? line() : node->source().begin.line, key, what);
}

void TableReader::failAt(unsigned line, std::string_view key, const std::string &what) const
{
    failIn(fileName_, line, pathOf(key) + ": " + what);
}

uint32_t TableReader::numberOf(const toml::node &node, std::string_view key, uint32_t highest) const
{
    const auto value = node.value_exact<int64_t>();
    if (!value || *value < 0 || *value > int64_t{highest}) {
        const std::string found = value ? std::to_string(*value) + " is out of range" : "is not a whole number";
        failAt(node.source().begin.line, key,
               found + "; write 0 to " + (highest == kHighest ? "0xFFFFFFFF" : std::to_string(highest)));
    }
    return static_cast<uint32_t>(*value);
}

void TableReader::readNumbers(std::string_view key, uint32_t *values, std::size_t count) const
{
    const toml::node *node = table_->get(key);
    if (node == nullptr) {
        return;
    }
    const toml::array *array = node->as_array();
    if (array == nullptr || array->size() != count) {
        fail(key, "is not a list of " + std::to_string(count) + " numbers; write " + std::string(key) + " = [0, ...] with " +
                      std::to_string(count) + " numbers");
    }
    for (const toml::node &item : *array) {
        *values++ = numberOf(item, key, kHighest);
    }
}

std::string TableReader::pathOf(std::string_view key) const
{
    return where_.empty() ? std::string(key) : where_ + '.' + std::string(key);
}

}  // namespace kvosim
