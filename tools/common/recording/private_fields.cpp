#include "common/recording/private_fields.h"

#include "common/dotted_address.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tools::recording {

namespace {

using Fields = std::vector<PrivateField>;
using FieldKind = PrivateField::Kind;

constexpr std::size_t kHexLength = 8;
/// How the service writes an empty text in a USB event.
constexpr std::string_view kEmptyText = "?$?\xA7?eEmMpPtTyY!\xA7!$!";

/// A request and its reply, for those that are not only keywords, numbers and a station as the last argument. {station} is an address
/// as eight hexadecimal digits, {n} a decimal number, {hex} a hexadecimal one, {name} and {text} are private, {part} is a number or
/// a private text, {words} are words and numbers, {keep} stays. Lists have names of their own. Each reply may also be one of
/// kResults.
struct Form {
    std::string_view request;
    std::string_view reply{};
};

constexpr Form kForms[] = {
    // These describe the product and its hardware, and are needed to find faults.
    {"setDebugLevel=DEBUG_LEVEL_{keep}"},
    {"getDebugLevel", "DEBUG_LEVEL_{keep}"},
    {"getVersion", "{keep}"},
    {"getregistrypath", "{keep}"},
    {"getPaneOemLayout={station}", "panel-oem-layout={keep}"},
    {"getDisableCapsLock={station}", "diable capslock {n}"},  // the service's spelling
    // Hexadecimal numbers that are not addresses
    {"getIPbyMCPAddress={hex}", "ipaddr={station}"},
    {"getIPbyDCKAddress={hex}", "ipaddr={station}"},
    {"getIPbyKVOIndex={hex}", "ipaddr={station}"},
    {"getSoftkeyType={station}", "softkey-type={hex}"},
    {"getKeyBoardCaps={station}", "keyboard-caps={hex}"},
    {"getHardwareCaps={station}", "hardware-caps={hex}"},
    // Names and texts
    {"setStatusline={station},{n},{n},{text}"},
    {"startViewer=\"{name}:{part}:{part}\" {station}"},
    {"startConfiguredViewer=\"{name}:{n}\" {station}"},
    {"getCurServer={station}", "vncserver={name}:{part}"},
    {"getKVOScreenOnFocus={station}", "screen-on-focus={text}"},
    {"getKVOt2m2n={station}", "{words}"},
    {"setChannelInfo=\"{text}\" {station}"},
    {"getChannelInfo={station}", "channel-info={text}"},
    {"getUsbConnectorList", "usb-connector-list={connectors}"},
    {"getUsbConnectorListOne={station}", "usb-connector-list-one={connectors}"},
    // Lists
    {"getClientList 0 {hex}", "{clients}"},
    {"getDLV2 {n}", "{stations}"},
    {"getDL_ExV2 {n}", "{extended}"},
    {"getExDescByIP {station}", "{description}"},
    {"getExDescByName {name}", "{description}"},
};

/// Replies that say how a request ended.
constexpr std::array<std::string_view, 23> kResults{
    "",
    "ok",
    "failed",
    "yes",
    "no",
    "busy",
    "none",
    "not running",
    "not active",
    "active",
    "not found",
    "bad request",
    "no_touchscreen",
    "not_a_rv4",
    "no_mcp_address",
    "free",
    "no_dck_address",
    "more_than_one_mcp",
    "no_kvo_index",
    "more_than_one_dck",
    "unknown",
    "more_than_one_kvo_index",
    "unknown request",
};

/// USB events, and how many private texts follow the address and the two identifiers. Numbers follow the texts.
struct UsbForm {
    std::string_view keyword;
    std::size_t texts;
};
constexpr UsbForm kUsbForms[] = {
    {"newUSBdevice", 4}, {"ignoreUSBdevice", 3}, {"changeStateUSBdevice", 0}, {"removeUSBdevice", 0}};

/// Texts of a plant file, and where a program reads or writes them.
struct PlantForm {
    std::string_view key;
    Kind kind;
    std::string_view request;                 ///< up to the text, or the whole request
    std::optional<std::string_view> reply{};  ///< up to the text, if it is a part of the reply
};
constexpr PlantForm kPlantForms[] = {
    {"name", Kind::ask, "getExDescByName "},
    {"viewer", Kind::ask, "getCurServer=00000000", "vncserver="},
    {"status_line", Kind::ask, "setStatusline=00000000,0,0,"},
    {"screen_on_focus", Kind::ask, "getKVOScreenOnFocus=00000000", "screen-on-focus="},
    {"t2m2n", Kind::ask, "getKVOt2m2n=00000000", ""},
    {"channel_info", Kind::ask, "getChannelInfo=00000000", "channel-info="},
    {"usb_connectors", Kind::ask, "getUsbConnectorListOne=00000000", "usb-connector-list-one="},
    {"ident2", Kind::usb, "removeUSBdevice*0.0.0.0*"},
    {"ident3", Kind::usb, "removeUSBdevice*0.0.0.0*usb1*"},
    {"text4", Kind::usb, "newUSBdevice*0.0.0.0*usb1*1*"},
    {"text5", Kind::usb, "newUSBdevice*0.0.0.0*usb1*1*"},
    {"text6", Kind::usb, "newUSBdevice*0.0.0.0*usb1*1*"},
    {"text7", Kind::usb, "newUSBdevice*0.0.0.0*usb1*1*"},
    {"text8", Kind::usb, "newUSBdevice*0.0.0.0*usb1*1*"},
};

/// Texts of a plant file that are not private. Some are numbers.
constexpr std::array<std::string_view, 11> kPublicKeys{"version", "oem_layout", "kind", "command", "bytes", "number1",
                                                       "number2", "number3",    "id1",  "id2",     "state"};

// ---- Kinds of text ----

bool isDigit(char character) noexcept { return character >= '0' && character <= '9'; }
bool isHexDigit(char character) noexcept
{
    return isDigit(character) || (character >= 'A' && character <= 'F') || (character >= 'a' && character <= 'f');
}
bool isKeywordCharacter(char character) noexcept
{
    return isDigit(character) || (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           character == '_' || character == '-';
}

bool isNumber(std::string_view text) noexcept
{
    text.remove_prefix(text.starts_with('-') || text.starts_with('+') ? 1 : 0);
    return std::ranges::all_of(text, isDigit);
}
bool isHexNumber(std::string_view text) noexcept { return std::ranges::all_of(text, isHexDigit); }
bool isHexAddress(std::string_view text) noexcept { return text.size() == kHexLength && isHexNumber(text); }
bool isResult(std::string_view text) noexcept { return std::ranges::find(kResults, text) != kResults.end(); }

/// Whether a word of a reply is a part of the request's keyword: "getMCPAddress" and "mcpaddr".
bool containsWord(std::string_view keyword, std::string_view word)
{
    constexpr std::size_t kShortest = 4;
    const auto lower = [](char each) { return each >= 'A' && each <= 'Z' ? static_cast<char>(each - 'A' + 'a') : each; };
    const auto same = [&](char one, char other) { return lower(one) == lower(other); };
    const bool found = std::search(keyword.begin(), keyword.end(), word.begin(), word.end(), same) != keyword.end();
    return word.size() >= kShortest && found;
}

/// The place of a connector, such as "X60" or "1-1.2".
bool isPlace(std::string_view text) noexcept
{
    text.remove_prefix(text.starts_with('X') ? 1 : 0);
    return std::ranges::all_of(text, [](char each) { return isDigit(each) || each == '-' || each == '.'; });
}

/// The private fields of one text, found from its front to its end.
class Finder {
public:
    explicit Finder(std::string_view text) : text_(text) {}

    Fields take() { return std::move(fields_); }

    /// Adds what the asking side has sent. Only its first line is a request.
    void addRequest(Kind kind);
    void addReply(Kind kind, std::string_view request);
    void addWords(std::string_view text, std::string_view keyword = {});

    /// Matches a text with a form from kForms, and adds its fields. Adds none if it does not match.
    bool match(std::string_view text, std::string_view form);

private:
    void add(std::string_view text, FieldKind kind, std::optional<std::size_t> lengthOffset = std::nullopt)
    {
        if (!text.empty()) {
            fields_.push_back({offset(text), text.size(), kind, lengthOffset});
        }
    }
    /// Where a part of the text begins.
    [[nodiscard]] std::size_t offset(std::string_view part) const noexcept
    {
        return static_cast<std::size_t>(part.data() - text_.data());
    }

    bool addField(std::string_view name, std::string_view text);
    void addText(std::string_view text, FieldKind kind);
    void addUnknownRequest(std::string_view line);
    void addUsbEvent(std::string_view line);
    void addEmbeddedEvent(std::string_view line);
    void addConnectors(std::string_view text);
    void addDescriptions(std::string_view text, std::size_t numbersBefore, std::size_t numbersAfter, bool hasAddress);

    std::string_view text_;
    Fields fields_;
};

/// The first line without its end.
std::string_view firstLine(std::string_view bytes)
{
    std::string_view line = bytes.substr(0, bytes.find('\n'));
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    return line;
}

/// A dotted address, or a text of the kind that is expected.
FieldKind kindOf(std::string_view text, FieldKind expected)
{
    return tools::parseDotted(std::string(text)) ? FieldKind::dotted : expected;
}

void Finder::addText(std::string_view text, FieldKind kind)
{
    if (text != kEmptyText) {
        add(text, kindOf(text, kind));
    }
}

/// Words of a text with an unknown form. Numbers, results, the keys of values, and words of the request's @p keyword stay.
void Finder::addWords(std::string_view text, std::string_view keyword)
{
    constexpr std::string_view kSeparators = " \t\r\n\",;:=*|()[]{}<>";
    while (!text.empty()) {
        const std::size_t length = std::min(text.find_first_of(kSeparators), text.size());
        const std::string_view word = text.substr(0, length);
        const bool isKey = length < text.size() && text[length] == '=' && std::ranges::all_of(word, isKeywordCharacter);
        if (isNumber(word) || isResult(word) || isKey || containsWord(keyword, word)) {
            // stays. The addresses of plants (10.x.x.x, 172.16.x.x, 192.168.x.x) have a letter when written in hexadecimal digits.
        } else if (isHexAddress(word)) {
            add(word, FieldKind::number);
        } else {
            addText(word, FieldKind::text);
        }
        text.remove_prefix(std::min(length + 1, text.size()));
    }
}

std::string_view keywordOf(std::string_view request)
{
    const auto end = std::ranges::find_if_not(request, isKeywordCharacter);
    const bool isKeyword = end == request.end() || *end == '=' || *end == ' ';
    return isKeyword ? std::string_view(request.begin(), end) : std::string_view();
}

/// A keyword and arguments, of which the last may be a station.
void Finder::addUnknownRequest(std::string_view line)
{
    line.remove_prefix(keywordOf(line).size());
    const std::size_t rest = line.size() > kHexLength ? line.size() - kHexLength : 0;
    const std::string_view last = line.substr(rest);
    const bool hasStation = rest > 0 && isHexAddress(last) && (line[rest - 1] == ' ' || line[rest - 1] == '=');
    addWords(hasStation ? line.substr(0, rest) : line);
    if (hasStation) {
        add(last, FieldKind::number);
    }
}

// ---- Lists ----

/// "X60:keyboard X61:free". In the list of all stations, each entry begins with an address, and ";" separates entries.
void Finder::addConnectors(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t length = std::min(text.find_first_of(" ;"), text.size());
        const std::string_view connector = text.substr(0, length);
        const std::size_t colon = connector.find(':');
        const std::string_view place = connector.substr(0, colon);
        if (!isPlace(place) || kindOf(place, FieldKind::text) == FieldKind::dotted) {
            addText(place, FieldKind::text);
        }
        if (colon != std::string_view::npos && connector.substr(colon + 1) != "free") {
            addText(connector.substr(colon + 1), FieldKind::text);
        }
        text.remove_prefix(std::min(length + 1, text.size()));
    }
}

/// Takes eight hexadecimal digits and a space from the front of @p rest; the space may be missing at the end.
std::optional<std::string_view> takeHex(std::string_view &rest)
{
    const std::string_view digits = rest.substr(0, kHexLength);
    if (!isHexAddress(digits) || (rest.size() > kHexLength && rest[kHexLength] != ' ')) {
        return std::nullopt;
    }
    rest.remove_prefix(std::min(kHexLength + 1, rest.size()));
    return digits;
}

std::size_t valueOf(std::string_view digits)
{
    std::size_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return value;
}

/// Descriptions: numbers, of which the first may be an address, the length of the name, the name, and more numbers. What does not
/// have this form counts as words.
void Finder::addDescriptions(std::string_view text, std::size_t numbersBefore, std::size_t numbersAfter, bool hasAddress)
{
    while (!text.empty()) {
        std::string_view rest = text;
        std::optional<std::string_view> number;
        std::optional<std::string_view> address;
        for (std::size_t i = 0; i < numbersBefore && (number = takeHex(rest)); ++i) {
            address = i == 0 && hasAddress ? number : address;
        }
        const std::optional<std::string_view> length = number ? takeHex(rest) : std::nullopt;
        if (!length || valueOf(*length) > rest.size()) {
            addWords(text);
            return;
        }
        if (address) {
            add(*address, FieldKind::number);
        }
        const std::string_view name = rest.substr(0, valueOf(*length));
        add(name, kindOf(name, FieldKind::name), offset(*length));
        rest.remove_prefix(name.size());
        rest.remove_prefix(rest.starts_with(' ') ? 1 : 0);
        for (std::size_t i = 0; i < numbersAfter && takeHex(rest); ++i) {
        }
        text = rest;
    }
}

// ---- Forms ----

/// Adds a field of a form. Returns false if the text cannot be such a field.
bool Finder::addField(std::string_view name, std::string_view text)
{
    if (name == "station") {
        add(text, FieldKind::number);
        return isHexAddress(text);
    }
    if (name == "n") {
        return isNumber(text);
    }
    if (name == "hex") {
        return isHexNumber(text);
    }
    if (name == "name" || name == "text" || (name == "part" && !isNumber(text))) {
        addText(text, name == "name" ? FieldKind::name : FieldKind::text);
    } else if (name == "words") {
        addWords(text);
    } else if (name == "connectors") {
        addConnectors(text);
    } else if (name == "description") {
        addDescriptions(text, 4, 7, true);
    } else if (name == "stations" || name == "extended" || name == "clients") {
        std::string_view rest = text;
        if (!takeHex(rest)) {
            return false;
        }
        addDescriptions(rest, name == "clients" ? 1 : 4, name == "extended" ? 7 : 0, name != "clients");
    }
    return true;
}

bool Finder::match(std::string_view text, std::string_view form)
{
    const std::size_t before = fields_.size();
    for (;;) {
        const std::size_t brace = form.find('{');
        const std::string_view literal = form.substr(0, brace);
        const bool isEnd = brace == std::string_view::npos;
        if (isEnd ? text != literal : !text.starts_with(literal)) {
            break;
        }
        if (isEnd) {
            return true;
        }
        text.remove_prefix(literal.size());
        const std::size_t close = form.find('}');
        const std::string_view name = form.substr(brace + 1, close - brace - 1);
        form.remove_prefix(close + 1);
        const std::string_view next = form.substr(0, form.find('{'));
        // A quoted text is not escaped and ends only at the last double quote.
        const std::size_t length = next.empty() ? text.size() : next.starts_with('"') ? text.rfind(next) : text.find(next);
        if (length == std::string_view::npos || !addField(name, text.substr(0, length))) {
            break;
        }
        text.remove_prefix(length);
    }
    fields_.erase(fields_.begin() + static_cast<std::ptrdiff_t>(before), fields_.end());
    return false;
}

/// The form of a request; its fields go to @p finder.
const Form *findForm(Finder &finder, std::string_view line)
{
    const auto *const form = std::ranges::find_if(kForms, [&](const Form &each) { return finder.match(line, each.request); });
    return form == std::end(kForms) ? nullptr : form;
}

// ---- Events ----

void Finder::addUsbEvent(std::string_view line)
{
    const std::string_view keyword = line.substr(0, line.find('*'));
    const auto *const form = std::ranges::find(kUsbForms, keyword, &UsbForm::keyword);
    if (form == std::end(kUsbForms) || keyword.size() == line.size()) {
        addUnknownRequest(line);
        return;
    }
    line.remove_prefix(keyword.size() + 1);
    for (std::size_t number = 0; !line.empty(); ++number) {
        const std::string_view field = line.substr(0, line.find('*'));
        line.remove_prefix(std::min(field.size() + 1, line.size()));
        const bool isText = number < 2 || (number >= 3 && number < 3 + form->texts);
        const bool mayStay = number == 2
                                 ? isPlace(field)
                                 : std::ranges::all_of(field, [](char each) { return isHexDigit(each) || each == ' '; });
        if (isText || !mayStay) {
            addText(field, FieldKind::text);
        }
    }
}

/// "name, data"; the name is a keyword.
void Finder::addEmbeddedEvent(std::string_view line)
{
    const std::size_t comma = line.find(',');
    if (line == "Alive?") {
        return;
    }
    const bool hasName = comma != std::string_view::npos && std::ranges::all_of(line.substr(0, comma), isKeywordCharacter);
    addWords(hasName ? line.substr(comma) : line);
}

void Finder::addRequest(Kind kind)
{
    const std::string_view line = firstLine(text_);
    if (kind == Kind::usb) {
        addUsbEvent(line);
    } else if (kind == Kind::event) {
        addEmbeddedEvent(line);
    } else if (findForm(*this, line) == nullptr) {
        addUnknownRequest(line);
    }
    addWords(text_.substr(line.size()));
}

void Finder::addReply(Kind kind, std::string_view request)
{
    const std::string_view line = firstLine(text_);
    Finder ignored(request);
    const Form *form = kind == Kind::ask ? findForm(ignored, firstLine(request)) : nullptr;
    if (!isResult(line) && (form == nullptr || form->reply.empty() || !match(line, form->reply))) {
        addWords(line, keywordOf(request));
    }
    addWords(text_.substr(line.size()));
}

}  // namespace

std::vector<PrivateField> fieldsOfRequest(Kind kind, std::string_view request)
{
    Finder finder(request);
    finder.addRequest(kind);
    return finder.take();
}

std::vector<PrivateField> fieldsOfReply(Kind kind, std::string_view request, std::string_view reply)
{
    Finder finder(reply);
    finder.addReply(kind, request);
    return finder.take();
}

std::vector<PrivateField> fieldsOfPlantValue(std::string_view key, std::string_view value)
{
    if (std::ranges::find(kPublicKeys, key) != kPublicKeys.end()) {
        return {};
    }
    const auto *const form = std::ranges::find(kPlantForms, key, &PlantForm::key);
    if (form == std::end(kPlantForms)) {
        Finder finder(value);
        finder.addWords(value);
        return finder.take();
    }
    const std::string before(form->reply.value_or(form->request));
    const std::string text = before + std::string(value);
    Fields fields = form->reply ? fieldsOfReply(form->kind, form->request, text) : fieldsOfRequest(form->kind, text);
    std::erase_if(fields, [&](const PrivateField &field) { return field.offset < before.size(); });
    std::ranges::for_each(fields, [&](PrivateField &field) { field.offset -= before.size(); });
    return fields;
}

std::vector<PrivateField> addressesIn(std::string_view text)
{
    std::vector<PrivateField> fields;
    for (std::size_t at = 0; (at = text.find_first_of("0123456789", at)) != std::string_view::npos;) {
        const std::size_t end = std::min(text.find_first_not_of("0123456789.", at), text.size());
        std::string_view number = text.substr(at, end - at);
        number.remove_suffix(number.ends_with('.') ? 1 : 0);  // the end of a sentence
        if (tools::parseDotted(std::string(number))) {
            fields.push_back({at, number.size(), PrivateField::Kind::dotted});
        }
        at = end;
    }
    return fields;
}

}  // namespace tools::recording
