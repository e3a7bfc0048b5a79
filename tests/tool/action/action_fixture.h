#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "arguments/checker.h"
#include "common/configuration.h"
#include "common/console_output.h"
#include "common/run_statistics.h"
#include "factory/factory.h"
#include "support/file_helpers.h"
#include "support/manifest_text.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"
#include "xml/file.h"

namespace ict_test {

// What an action needs around it: a temporary product folder, a detail
// tracer, captured console streams, run statistics and a factory.
class ActionFixture {
public:
    ActionFixture()
        : output_(std::make_shared<integrity_check_tool::ConsoleOutput>(true, out_, err_)),
          statistics_(
              std::make_shared<integrity_check_tool::RunStatistics>(trace_.Tracer(), output_)),
          arguments_(std::make_shared<integrity_check_tool::CheckerArguments>()) {}

    // Writes a manifest file holding `body` inside its root element.
    boost::filesystem::path WriteManifest(const std::string& name, const std::string& body) {
        const auto path = dir_ / name;
        WriteText(path, "<Manifest productName=\"Test\">\n" + body + "</Manifest>\n");
        return path;
    }

    integrity_check_tool::VerifySettings Settings(
        std::set<boost::filesystem::path> manifests) const {
        integrity_check_tool::VerifySettings settings;
        settings.manifestPaths = std::move(manifests);
        return settings;
    }

    std::shared_ptr<integrity_check_tool::Factory> MakeFactory() const {
        return std::make_shared<integrity_check_tool::Factory>(
            trace_.Tracer(), std::make_shared<integrity_check_tool::ApplicationConfiguration>(),
            arguments_);
    }

    // "failed/skipped/succeeded" of a kind, for compact assertions.
    std::string Counts(std::size_t kind) const {
        const auto& counters = statistics_->Get(kind);
        return std::to_string(counters.failed) + "/" + std::to_string(counters.skipped) + "/" +
               std::to_string(counters.succeeded);
    }

    bool Traced(const std::string& message) const { return trace_.Traced(message); }

    TempDir dir_;
    TraceCapture trace_;
    std::ostringstream out_;
    std::ostringstream err_;
    integrity_check_tool::ConsoleOutputPtr output_;
    integrity_check_tool::RunStatisticsPtr statistics_;
    std::shared_ptr<integrity_check_tool::CheckerArguments> arguments_;
};

}  // namespace ict_test
