#include "common/run_statistics.h"

#include <stdexcept>

#include "common/exception.h"

namespace integrity_check_tool {
namespace {

const char* SummaryLine(std::size_t kind) {
    static const char* const kLines[] = {
        "\tManifests: %1% / %2% / %3%",       "\tFiles: %1% / %2% / %3%",
        "\tDirectories: %1% / %2% / %3%",     "\tRegistries: %1% / %2% / %3%",
        "\tRegistry values: %1% / %2% / %3%",
    };
    return kLines[kind];
}

const char* SummarySeparator() {
    return "===============================================>";
}
const char* SummaryTitle() {
    return "Summary( failed / skipped / succeeded ):";
}
const char* ObjectProcessing() {
    return "Processing %1% %2% ...";
}
const char* ObjectSucceeded() {
    return "%1% %2% succeeded";
}
const char* ObjectFailed() {
    return "%1% %2% failed. Reason: %3%";
}
const char* ObjectFiltered() {
    return "%1% %2% filtered";
}

}  // namespace

RunStatistics::RunStatistics(TracerPtr tracer, ConsoleOutputPtr output)
    : tracer_(std::move(tracer)), output_(std::move(output)) {}

const RunStatistics::Counters& RunStatistics::Get(std::size_t kind) const {
    if (kind >= counters_.size()) {
        throw std::out_of_range("invalid array<T, N> subscript");
    }
    return counters_[kind];
}

void RunStatistics::CountSuccess(std::size_t kind) {
    ++const_cast<Counters&>(Get(kind)).succeeded;
}
void RunStatistics::CountSkip(std::size_t kind) {
    ++const_cast<Counters&>(Get(kind)).skipped;
}
void RunStatistics::CountFailure(std::size_t kind) {
    ++const_cast<Counters&>(Get(kind)).failed;
}

void RunStatistics::PrintSummary() {
    output_->Write(ConsoleOutput::Result, SummarySeparator());
    output_->Write(ConsoleOutput::Result, SummaryTitle());
    for (std::size_t kind = 0; kind < counters_.size(); ++kind) {
        const auto& counters = counters_[kind];
        output_->Write(ConsoleOutput::Result, MessageFormat(SummaryLine(kind), counters.failed,
                                                            counters.skipped, counters.succeeded));
    }
    output_->Write(ConsoleOutput::Result, SummarySeparator());
}

bool RunStatistics::Run(std::size_t kind, const std::string& word, const std::string& name,
                        const std::function<void()>& check) {
    Get(kind);  // a bad kind is a programming error, not an object failure
    // The per-object lines are composed only when someone reads them: a
    // quiet run over many small files would spend its time formatting.
    const bool detailed = output_->IsVerbose() || tracer_->IsEnabled(trace_level::Detail);
    if (detailed) {
        const std::string processing = MessageFormat(ObjectProcessing(), word, name);
        output_->Write(ConsoleOutput::Verbose, processing);
        tracer_->Write(trace_level::Detail, processing);
    }
    try {
        check();
    } catch (...) {
        CountFailure(kind);
        // Where it happened comes first, on a line of its own.
        const std::string context = CurrentExceptionContext();
        const std::string failed =
            MessageFormat(ObjectFailed(), word, name, CurrentExceptionText());
        for (const std::string* line : {&context, &failed}) {
            if (line->empty()) {
                continue;
            }
            output_->Write(ConsoleOutput::Error, *line);
            // On the console the error line is already shown; the log file gets it too.
            if (tracer_->WritesToFile()) {
                tracer_->Write(trace_level::Error, *line);
            }
        }
        return false;
    }
    CountSuccess(kind);
    if (detailed) {
        const std::string succeeded = MessageFormat(ObjectSucceeded(), word, name);
        output_->Write(ConsoleOutput::Verbose, succeeded);
        tracer_->Write(trace_level::Detail, succeeded);
    }
    return true;
}

void RunStatistics::Skip(std::size_t kind, const std::string& word, const std::string& name) {
    CountSkip(kind);
    if (output_->IsVerbose() || tracer_->IsEnabled(trace_level::Detail)) {
        const std::string filtered = MessageFormat(ObjectFiltered(), word, name);
        output_->Write(ConsoleOutput::Verbose, filtered);
        tracer_->Write(trace_level::Detail, filtered);
    }
}

}  // namespace integrity_check_tool
