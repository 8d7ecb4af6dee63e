#include "kvoctl/report/index.h"

#include "kvoctl/output/display_text.h"
#include "kvoctl/trace/trace_line.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace kvoctl::reporting {

namespace {

constexpr std::size_t kColumns = 78;
constexpr std::size_t kMostNotes = 20;

/// Breaks a text into lines that fit, each after @p indent.
std::string wrapped(const std::string &text, const std::string &indent)
{
    std::istringstream words(displayText(text).text);
    std::string lines;
    std::string line;
    for (std::string word; words >> word;) {
        if (!line.empty() && indent.size() + displayText(line).width + 1 + displayText(word).width > kColumns) {
            lines += indent + line + '\n';
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return lines + indent + line + '\n';
}

std::string sizesOf(const Content &content)
{
    std::string sizes;
    for (const File &file : content.files) {
        sizes += (sizes.empty() ? "" : ", ") + file.name + " " + std::to_string(file.content.size()) + " bytes";
    }
    return sizes;
}

std::string notesText(const std::vector<std::string> &notes, const std::string &mark)
{
    const std::string indent = "    ";
    std::string text;
    for (std::size_t i = 0; i < std::min(notes.size(), kMostNotes); ++i) {
        text += wrapped(mark + notes[i], indent);
    }
    if (notes.size() > kMostNotes) {
        text += wrapped(mark + std::to_string(notes.size() - kMostNotes) + " more", indent);
    }
    return text;
}

std::string anonymizedText(const std::optional<Replaced> &replaced)
{
    if (!replaced) {
        return "Not anonymized: this report has the addresses, names and texts of the plant and the name of this machine. "
               "\"kvoctl report --anonymize\" replaces them.";
    }
    return "Anonymized: " + std::to_string(replaced->addresses) + " addresses and " + std::to_string(replaced->texts) +
           " names and texts are replaced, each by the same replacement in all parts. Comments and unknown keys of the "
           "configuration file, and quoted texts in the log, are left out. Names of programs, process ids, times and paths "
           "stay.";
}

std::string paragraphOf(const MadePart &made)
{
    std::string text = made.part.name + '\n' + wrapped(made.part.why, "    ");
    if (made.isMissing()) {
        return text + wrapped("MISSING: " + made.gathered.failure, "    ");
    }
    return text + wrapped("made at " + clockTime(made.gathered.made) + ": " + sizesOf(made.gathered.content), "    ") +
           notesText(made.gathered.content.notes, "INCOMPLETE: ");
}

std::string countText(const std::vector<MadePart> &parts)
{
    const auto missing = static_cast<std::size_t>(std::ranges::count_if(parts, &MadePart::isMissing));
    const auto incomplete = static_cast<std::size_t>(std::ranges::count_if(parts, &MadePart::isIncomplete));
    if (missing + incomplete == 0) {
        return "All " + std::to_string(parts.size()) + " parts are complete.";
    }
    return "Of " + std::to_string(parts.size()) + " parts, " + std::to_string(missing) + (missing == 1 ? " is" : " are") +
           " missing and " + std::to_string(incomplete) + (incomplete == 1 ? " is" : " are") +
           " incomplete. The reasons are below.";
}

}  // namespace

std::string problemsText(const std::vector<MadePart> &parts)
{
    std::string text;
    std::string names;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const MadePart &made = parts[i];
        if (made.isMissing()) {  // parts that follow each other often have the same reason
            const std::string &reason = made.gathered.failure;
            names += (names.empty() ? "" : ", ") + made.part.name;
            if (i + 1 == parts.size() || parts[i + 1].gathered.failure != reason) {
                text += wrapped(std::exchange(names, ""), "") + wrapped("missing: " + reason, "    ");
            }
        } else if (made.isIncomplete()) {
            text += made.part.name + '\n' + notesText(made.gathered.content.notes, "incomplete: ");
        }
    }
    return text;
}

std::string indexText(const Overview &overview, const std::vector<MadePart> &parts)
{
    std::string text = "Report of kvoctl " KVOCTL_VERSION ", begun at " + fullTime(overview.began) + "\n\n";
    text += wrapped("Start with doctor.txt: " + overview.doctor, "") + '\n';
    text += wrapped(countText(parts), "");
    if (overview.isEndedEarly) {
        text += wrapped("The user ended the report early.", "");
    }
    text += wrapped(anonymizedText(overview.replaced), "") + '\n';
    for (const MadePart &made : parts) {
        text += paragraphOf(made);
    }
    return text + '\n' + wrapped("The report was made in " + secondsText(overview.time) + ".", "");
}

}  // namespace kvoctl::reporting
