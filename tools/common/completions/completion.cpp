// Follows the words before the cursor through the parser's commands and options.
#include "common/completions/completion.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <unistd.h>

namespace tools::completions {

namespace {

struct Completion {
    const char *kind;
    Source source{};
    bool isOption = false;
};

/// Completions of all arguments. There is one registry, because a process has one command line.
struct Registry {
    std::map<const CLI::Option *, Completion> arguments;
    std::map<const CLI::App *, bool> commands;  ///< whether the other program's command line is required
};

Registry &registry()
{
    static Registry all;
    return all;
}

constexpr const char *kWords = "words";
constexpr unsigned kTimeLimit = 1;  // seconds; then the user would wait too long

/// Ends the process after the limit if the service does not answer. The shell gets the part that has been written until then.
void limitTime()
{
    std::signal(SIGALRM, [](int) { _exit(0); });
    alarm(kTimeLimit);
}

bool containsControlCharacter(const std::string &text)
{
    return std::any_of(text.begin(), text.end(), [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return value < 0x20 || value == 0x7F;
    });
}

bool isDashed(const std::string &word) { return word.size() > 1 && word.front() == '-'; }

std::vector<const CLI::App *> subcommands(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *subcommand) { return !subcommand->get_group().empty(); });
}

/// The longest name of an option, as the user types it.
std::string spelling(const CLI::Option &option)
{
    return option.get_lnames().empty() ? "-" + option.get_snames().front() : "--" + option.get_lnames().front();
}

bool takesValue(const CLI::Option &option) { return option.get_items_expected_max() > 0; }

bool isRepeatable(const CLI::Option &option)
{
    return option.get_items_expected_max() > 1 || option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
}

/// The unfinished word, and the parsed words before it.
class Line {
public:
    Line(const CLI::App &app, const std::vector<std::string> &words) : app_(&app), unfinished_(words.back())
    {
        std::for_each(words.begin(), words.end() - 1, [this](const std::string &word) { take(word); });
    }

    [[nodiscard]] Completion completion() const
    {
        if (afterDashes_ && registry().commands.contains(app_)) {
            return {"command"};
        }
        if (!afterDashes_ && unfinished_.starts_with('-')) {
            return optionOrItsValue();
        }
        if (value_ != nullptr) {
            return of(value_);
        }
        if (const auto words = subcommands(*app_); !words.empty()) {
            return {kWords, [words] { return namesOf(words); }};
        }
        if (const CLI::Option *argument = positional(); argument != nullptr) {
            return of(argument);
        }
        // No other argument can follow, but an option can.
        return afterDashes_ ? Completion{kWords} : options();
    }

    /// Whether the candidate fits: the shell can pass it on, and the program does not mistake it for an option.
    [[nodiscard]] bool fits(const std::string &word, bool isOption) const
    {
        return word.starts_with(unfinished_) && !containsControlCharacter(word) &&
               (isOption || afterDashes_ || !isDashed(word));
    }

private:
    static Candidates namesOf(const std::vector<const CLI::App *> &apps)
    {
        Candidates names;
        for (const CLI::App *app : apps) {
            names.push_back({app->get_name(), app->get_description()});
        }
        return names;
    }

    static Completion of(const CLI::Option *argument)
    {
        const auto found = registry().arguments.find(argument);
        return found == registry().arguments.end() ? Completion{kWords} : found->second;
    }

    void take(const std::string &word)
    {
        if (afterDashes_) {  // NOLINT(bugprone-branch-clone): it takes precedence over the branches in between
            ++positionals_;
        } else if (word == "--") {
            afterDashes_ = true;
            value_ = nullptr;
        } else if (isDashed(word)) {
            takeOption(word);
        } else if (value_ != nullptr) {
            takeValue();
        } else if (const CLI::App *subcommand = find(subcommands(*app_), word); subcommand != nullptr) {
            app_ = subcommand;
            positionals_ = 0;
        } else {
            ++positionals_;
        }
    }

    static const CLI::App *find(const std::vector<const CLI::App *> &apps, const std::string &name)
    {
        const auto found = std::find_if(apps.begin(), apps.end(), [&](const CLI::App *app) { return app->check_name(name); });
        return found == apps.end() ? nullptr : *found;
    }

    void takeOption(const std::string &word)
    {
        const std::size_t equals = word.find('=');
        const CLI::Option *option = find(word.substr(0, equals));
        given_.insert(option);
        values_ = 0;
        value_ = option != nullptr && equals == std::string::npos && takesValue(*option) ? option : nullptr;
    }

    void takeValue()
    {
        ++values_;
        // A repeatable option takes one value each time, unless it takes several in a row.
        if (values_ >= value_->get_items_expected_max() || !value_->get_allow_extra_args()) {
            value_ = nullptr;
        }
    }

    /// The subcommand's own options, and those of its parent commands that may follow it.
    [[nodiscard]] std::vector<const CLI::Option *> known() const
    {
        std::vector<const CLI::Option *> options;
        std::set<std::string> names;
        for (const CLI::App *app = app_; app != nullptr; app = app->get_fallthrough() ? app->get_parent() : nullptr) {
            for (const CLI::Option *option : app->get_options()) {
                if (option->nonpositional() && names.insert(spelling(*option)).second) {
                    options.push_back(option);
                }
            }
        }
        return options;
    }

    [[nodiscard]] const CLI::Option *find(const std::string &name) const
    {
        const auto options = known();
        const auto found =
            std::find_if(options.begin(), options.end(), [&](const CLI::Option *option) { return option->check_name(name); });
        return found == options.end() ? nullptr : *found;
    }

    [[nodiscard]] Completion optionOrItsValue() const
    {
        const std::size_t equals = unfinished_.find('=');
        const CLI::Option *option = equals == std::string::npos ? nullptr : find(unfinished_.substr(0, equals));
        if (option == nullptr) {
            return options();
        }
        Completion values = of(option);
        values.isOption = true;
        if (values.source) {
            values.source = [source = values.source, prefix = unfinished_.substr(0, equals + 1)] {
                Candidates candidates = source();
                for (Candidate &candidate : candidates) {
                    candidate.word.insert(0, prefix);
                }
                return candidates;
            };
        }
        return values;
    }

    [[nodiscard]] bool isExcluded(const CLI::Option &option) const
    {
        const auto excluded = option.get_excludes();
        return std::any_of(excluded.begin(), excluded.end(),
                           [this](const CLI::Option *other) { return given_.contains(other); });
    }

    [[nodiscard]] Completion options() const
    {
        Candidates candidates;
        for (const CLI::Option *option : known()) {
            if ((!given_.contains(option) || isRepeatable(*option)) && !isExcluded(*option)) {
                candidates.push_back({spelling(*option), option->get_description()});
            }
        }
        return {kWords, [candidates] { return candidates; }, true};
    }

    /// The positional argument to which the unfinished word belongs.
    [[nodiscard]] const CLI::Option *positional() const
    {
        int before = positionals_;
        for (const CLI::Option *option : app_->get_options()) {
            if (!option->get_positional()) {
                continue;
            }
            if (before < option->get_items_expected_max()) {
                return option;
            }
            before -= option->get_items_expected_max();
        }
        return nullptr;
    }

    const CLI::App *app_;
    std::string unfinished_;
    const CLI::Option *value_ = nullptr;  ///< the option whose value comes next
    int values_ = 0;                      ///< how many values it already has
    int positionals_ = 0;
    bool afterDashes_ = false;
    std::set<const CLI::Option *> given_;
};

void answer(const Line &line, std::ostream &out)
{
    const Completion completion = line.completion();
    out << completion.kind << '\n' << std::flush;
    for (const Candidate &candidate : completion.source ? completion.source() : Candidates()) {
        if (line.fits(candidate.word, completion.isOption)) {
            const bool shown = !containsControlCharacter(candidate.description);
            out << candidate.word << '\t' << (shown ? candidate.description : "") << '\n';
        }
    }
    out.flush();
}

}  // namespace

void completeFrom(const CLI::Option *argument, Source source) { registry().arguments[argument] = {kWords, std::move(source)}; }

void completeWords(const CLI::Option *argument, std::initializer_list<const char *> words)
{
    Candidates candidates;
    for (const char *word : words) {
        candidates.push_back({word});
    }
    completeFrom(argument, [candidates] { return candidates; });
}

void completeFiles(const CLI::Option *argument) { registry().arguments[argument] = {"files", {}}; }

void completeDirectories(const CLI::Option *argument) { registry().arguments[argument] = {"directories", {}}; }

void completeCommand(const CLI::App *subcommand) { registry().commands[subcommand] = true; }

void completeOptionalCommand(const CLI::App *subcommand) { registry().commands[subcommand] = false; }

bool takesCommand(const CLI::App *subcommand) { return registry().commands.contains(subcommand); }

bool requiresCommand(const CLI::App *subcommand) { return takesCommand(subcommand) && registry().commands.at(subcommand); }

bool answerShell(const CLI::App &app, const std::vector<std::string> &arguments, std::ostream &out)
{
    if (arguments.size() < 3 || arguments[0] != "complete" || arguments[1] != "--") {
        return false;
    }
    limitTime();
    try {
        answer(Line(app, {arguments.begin() + 2, arguments.end()}), out);
    } catch (const std::exception &) {
        // Write nothing: a shell would show it in the middle of the user's line.
    }
    return true;
}

}  // namespace tools::completions
