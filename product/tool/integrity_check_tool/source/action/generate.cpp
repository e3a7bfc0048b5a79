#include "action/generate.h"

#include <iostream>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/run_statistics.h"
#include "common/trace_level.h"
#include "generate/generation_config.h"
#include "generate/manifest_generator.h"
#include "generate/progress_counter.h"
#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "platform/terminal.h"
#include "utils/atomic_file.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

const char* ManifestWritten() {
    return "Manifest %1% written";
}
const char* ManifestStored() {
    return "Manifest file %1% stored:\n%2%";
}
const char* OutputIsConfiguration() {
    return "it would overwrite the generation configuration %1%";
}
const char* ObjectsFailed() {
    return "some of its objects failed, so it was not written";
}

// Whether two paths lead to one existing file, through links, "..", another
// case of letters where names ignore it, or a second hard link.
bool IsSameFile(const boost::filesystem::path& a, const boost::filesystem::path& b) {
    boost::system::error_code error;
    return boost::filesystem::equivalent(a, b, error) && !error;
}

// Redrawn every this many files when standard error is a terminal.
constexpr std::size_t kProgressEvery = 100;

}  // namespace

Generate::Generate(IFactoryPtr factory, ConsoleOutputPtr output)
    : factory_(std::move(factory)), output_(std::move(output)) {}

std::string Generate::GetName() const {
    return "Generate";
}

bool Generate::Execute() {
    const TracerPtr& tracer = factory_->GetTracer();
    const GenerateSettings& settings = *factory_->GetConfiguration()->generate;
    const std::string manifestName = PathToUtf8(settings.manifestPath);
    RunStatistics statistics(tracer, output_);
    generate::ProgressCounter progress(std::cerr, platform::IsStandardErrorTerminal(),
                                       kProgressEvery);
    bool succeeded = false;
    try {
        if (IsSameFile(settings.configPath, settings.manifestPath)) {
            ICT_THROW(
                Exception(MessageFormat(OutputIsConfiguration(), PathToUtf8(settings.configPath))));
        }
        const auto config = generate::ReadGenerationConfig(settings.configPath);
        generate::ManifestGenerator generator(factory_, output_, statistics, progress);
        const ManifestPtr manifest = generator.Generate(config, settings);
        if (manifest) {
            const xml::File writer(tracer);
            WriteFileAtomically(settings.manifestPath,
                                [&](ruk::IIO& io) { writer.Write(*manifest, io); });
            if (tracer->IsEnabled(trace_level::Detail)) {
                tracer->Write(trace_level::Detail, MessageFormat(ManifestStored(), manifestName,
                                                                 PrintManifest(*manifest)));
            }
            statistics.CountSuccess(Manifests);
            output_->Write(ConsoleOutput::Result, MessageFormat(ManifestWritten(), manifestName));
            succeeded = true;
        } else {
            statistics.CountFailure(Manifests);
            generate::ReportGenerationFailure(*tracer, *output_, object_word::Manifest,
                                              manifestName, ObjectsFailed());
        }
    } catch (...) {
        progress.Clear();
        statistics.CountFailure(Manifests);
        generate::ReportGenerationFailure(*tracer, *output_, object_word::Manifest, manifestName,
                                          CurrentExceptionText());
    }
    statistics.PrintSummary();
    return succeeded;
}

}  // namespace integrity_check_tool::action
