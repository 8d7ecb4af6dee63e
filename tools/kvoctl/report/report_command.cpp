#include "kvoctl/report/report_command.h"

#include "common/completions/completion.h"
#include "common/finding.h"
#include "common/json.h"
#include "common/new_file.h"
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/report/anonymous.h"
#include "kvoctl/report/archive.h"
#include "kvoctl/report/index.h"
#include "kvoctl/report/trace_text.h"

#include <iostream>
#include <memory>

namespace kvoctl {

namespace {

using namespace reporting;
using Parts = std::vector<MadePart>;

constexpr const char *kIndexName = "INDEX.txt";
constexpr const char *kIndexWhy = "what is in the report, and what is not and why";
constexpr int64_t kLongestTrace = 24L * 3600;

struct ReportArguments {
    std::shared_ptr<std::string> file{};
    CLI::Option *force = nullptr;
    CLI::Option *anonymize = nullptr;
    CLI::Option *dryRun = nullptr;
    Argument<int64_t> trace{};

    [[nodiscard]] std::vector<Part> parts() const
    {
        Options options{.anonymize = anonymize->count() > 0, .folder = std::filesystem::path(*file).parent_path()};
        if (const auto seconds = trace.valueIfGiven()) {
            options.trace = std::chrono::seconds(*seconds);
        }
        return partsOf(options);
    }
};

// ---- What goes in ----

Report listOf(const std::vector<Part> &parts)
{
    Report report{.document = {{"parts", Document::array()}}, .table = Table({Table::Column::text, Table::Column::text})};
    const auto add = [&](const std::string &name, const std::string &why) {
        report.document["parts"].push_back({{"name", name}, {"why", why}});
        report.table->add({name, why});
    };
    add(kIndexName, kIndexWhy);
    for (const Part &part : parts) {
        add(part.name, part.why);
    }
    return report;
}

// ---- The parts ----

/// What the doctor has found, if it has found anything.
tools::Json findingsOf(const Gathered &doctor)
{
    for (const File &file : doctor.content.files) {
        if (file.name == "doctor.json") {
            return tools::Json::parse(file.content).at("findings");
        }
    }
    return tools::Json::array();
}

std::string firstFault(const tools::Json &findings, const std::function<bool(int status)> &matches)
{
    for (const tools::Json &finding : findings) {
        if (const int status = finding.at("status"); status != 0 && matches(status)) {
            return finding.at("finding");
        }
    }
    return {};
}

/// Whether every request would fail, most of them only after some seconds.
bool preventsRequests(int status)
{
    using tools::Fault;
    return (status >= static_cast<int>(Fault::directoryMissing) && status <= static_cast<int>(Fault::noReply)) ||
           status == static_cast<int>(Fault::tapLeft);
}

Parts gather(const std::vector<Part> &parts, bool &isEndedEarly)
{
    Gathering gathering(parts.size());
    Circumstances circumstances;
    Parts made;
    for (const Part &part : parts) {
        made.push_back({part, gathering.gather(part, circumstances)});
        if (made.size() == 1) {
            circumstances.serviceFault = firstFault(findingsOf(made.front().gathered), preventsRequests);
        }
    }
    isEndedEarly = gathering.isEnded();
    return made;
}

std::string doctorResult(const Gathered &doctor)
{
    if (!doctor.failure.empty()) {
        return "(missing)";
    }
    const std::string fault = firstFault(findingsOf(doctor), [](int /*status*/) { return true; });
    return fault.empty() ? "nothing is wrong." : fault;
}

/// The library's messages while the parts were made.
std::string messagesOf(const Parts &parts)
{
    std::string text;
    for (const MadePart &made : parts) {
        if (!made.gathered.messages.empty()) {
            text += made.part.name + ":\n" + made.gathered.messages;
        }
    }
    return text;
}

void addMessages(Parts &parts)
{
    const std::string messages = messagesOf(parts);
    if (!messages.empty()) {
        parts.push_back({{"messages.txt", "the library's messages while the parts were made", {}, {}},
                         {.content = {.files = {{"messages.txt", messages}}}, .made = parts.back().gathered.made}});
    }
}

Replaced anonymize(Parts &parts, std::string &doctor)
{
    Anonymous anonymous;
    std::vector<Content *> contents;
    for (MadePart &made : parts) {
        contents.push_back(&made.gathered.content);
    }
    anonymous.replaceIn(contents);
    for (MadePart &made : parts) {
        made.gathered.failure = anonymous.text(made.gathered.failure);
    }
    doctor = anonymous.text(doctor);
    return {anonymous.addresses(), anonymous.texts()};
}

/// Adds the readable form of a recording, which has been anonymized by now.
void addTraceTexts(Parts &parts)
{
    for (MadePart &made : parts) {
        std::vector<File> &files = made.gathered.content.files;
        if (files.empty() || files.front().form != Form::recording) {
            continue;
        }
        try {
            files.push_back({"trace.txt", traceText(files.front().content, files.front().name)});
        } catch (const std::exception &error) {
            made.gathered.content.notes.push_back("trace.txt is missing: " + std::string(error.what()));
        }
    }
}

// ---- The file ----

/// The folder in the archive: the name of the file without its suffixes.
std::string folderName(const std::filesystem::path &file)
{
    std::string name = file.filename();
    for (const char *suffix : {".gz", ".tgz", ".tar"}) {
        if (name.ends_with(suffix)) {
            name.resize(name.size() - std::string_view(suffix).size());
        }
    }
    return name.empty() || name.starts_with('.') ? "report" : name;
}

void write(tools::NewFile &file, const std::string &folder, const std::string &index, const Parts &parts)
{
    Archive archive(file.descriptor(), std::time(nullptr));
    archive.addFolder(folder);
    archive.addFile(folder + '/' + kIndexName, index);
    bool hasConfiguration = false;
    for (const MadePart &made : parts) {
        for (const File &each : made.gathered.content.files) {
            if (const std::size_t slash = each.name.find('/');
                slash != std::string::npos && !std::exchange(hasConfiguration, true)) {
                archive.addFolder(folder + '/' + each.name.substr(0, slash));
            }
            archive.addFile(folder + '/' + each.name, each.content);
        }
    }
    archive.finish();
}

/// Calls @p action. A file that cannot be created is a mistake of the user.
template <class Action>
auto withReportFile(Action action)
{
    try {
        return action();
    } catch (const std::runtime_error &error) {
        throw UsageError(error.what());
    }
}

// ---- The result ----

Document documentOf(const MadePart &made)
{
    Document files = Document::array();
    for (const File &file : made.gathered.content.files) {
        files.push_back({{"name", file.name}, {"bytes", file.content.size()}});
    }
    std::vector<std::string> reasons = made.gathered.content.notes;
    if (made.isMissing()) {
        reasons.push_back(made.gathered.failure);
    }
    return {{"name", made.part.name},
            {"state", made.isMissing()      ? "missing"
                      : made.isIncomplete() ? "incomplete"
                                            : "complete"},
            {"files", std::move(files)},
            {"reasons", reasons}};
}

Document documentOf(const ReportArguments &arguments, const Overview &overview, const Parts &parts, uint64_t bytes)
{
    Document document{
        {"file", *arguments.file}, {"bytes", bytes}, {"ended_early", overview.isEndedEarly}, {"anonymized", nullptr}};
    if (overview.replaced) {
        document["anonymized"] = {{"addresses", overview.replaced->addresses}, {"texts", overview.replaced->texts}};
    }
    document["parts"] = Document::array();
    for (const MadePart &made : parts) {
        document["parts"].push_back(documentOf(made));
    }
    return document;
}

Report writeReport(const ReportArguments &arguments, const CommandLine &commandLine)
{
    const std::vector<Part> list = arguments.parts();
    if (arguments.dryRun->count() > 0) {
        return listOf(list);
    }
    Archive::check();
    const bool force = arguments.force->count() > 0;
    withReportFile([&] { tools::checkReplaceable(*arguments.file, force); });
    if (!commandLine.json()) {  // before the file is created: a reader that ends may end this process with SIGPIPE
        kvoctl::write(listOf(list), false);
    }
    const auto file = withReportFile([&] { return std::make_unique<tools::NewFile>(*arguments.file, force); });
    const auto began = std::chrono::system_clock::now();
    Overview overview{.began = std::chrono::floor<std::chrono::microseconds>(began)};
    Parts parts = gather(list, overview.isEndedEarly);
    overview.doctor = doctorResult(parts.front().gathered);
    addMessages(parts);
    if (arguments.anonymize->count() > 0) {
        overview.replaced = anonymize(parts, overview.doctor);
    }
    addTraceTexts(parts);
    overview.time = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now() - began);
    try {
        write(*file, folderName(*arguments.file), indexText(overview, parts), parts);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error("cannot write \"" + *arguments.file + "\": " + error.what());
    }
    file->keep();
    const uint64_t bytes = std::filesystem::file_size(*arguments.file);
    if (!commandLine.json()) {
        std::cout << '\n' << problemsText(parts);
    }
    return {.document = documentOf(arguments, overview, parts, bytes),
            .line = "wrote \"" + *arguments.file + "\", " + std::to_string(bytes) + " bytes" +
                    (overview.isEndedEarly ? "; it was ended early" : "")};
}

Action setUpReport(CLI::App &command, const CommandLine &commandLine)
{
    ReportArguments arguments;
    arguments.file = std::make_shared<std::string>();
    auto *file = command.add_option("FILE", *arguments.file,
                                    "The file that is created, such as fault.tar.gz; readable only for its owner");
    tools::completions::completeFiles(file->required()->type_name(""));
    auto seconds = std::make_shared<int64_t>();
    auto *trace = command.add_option("--trace", *seconds, "Also record what passes on the sockets for SECONDS");
    trace->transform(wholeNumber(1, kLongestTrace, "not a whole number of seconds from 1 to 86400"))->type_name("SECONDS");
    arguments.trace = {trace, seconds};
    arguments.anonymize = addFlag(command, "--anonymize", "Replace the addresses, names and texts in all parts");
    arguments.dryRun = addFlag(command, "--dry-run", "Only list what goes in; write nothing");
    arguments.force = addFlag(command, "--force", "Replace FILE if it exists");
    return [=, &commandLine] { return writeReport(arguments, commandLine); };
}

}  // namespace

void addReport(CommandLine &commandLine)
{
    Family service(commandLine, "Service");
    service.add("report", "Put everything that is needed to find a fault into one file",
                {"fault.tar.gz", "fault.tar.gz --dry-run", "fault.tar.gz --trace 60 --anonymize"},
                [&commandLine](CLI::App &command) { return setUpReport(command, commandLine); });
}

}  // namespace kvoctl
