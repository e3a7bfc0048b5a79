// Feeds arbitrary bytes to the manifest reader. Whatever it accepts must
// print and read back to the same model, and print the same again: writing
// a manifest may never change what it says.
#include <cstdint>
#include <string>
#include <vector>

#include <boost/archive/iterators/dataflow_exception.hpp>

#include "common/exception.h"
#include "manifest/manifest_operations.h"
#include "ruk/io.h"
#include "xml/file.h"
#include "xml/manifest_writer.h"

namespace {

using namespace integrity_check_tool;

ManifestPtr Read(const std::string& text) {
    auto io =
        ruk::MakeIntrusive<ruk::MemoryIO>(std::vector<std::uint8_t>(text.begin(), text.end()));
    return xml::File(nullptr).Read(*io);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ManifestPtr first;
    try {
        first = Read(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const Exception&) {
        return 0;
    } catch (const boost::archive::iterators::dataflow_exception&) {
        return 0;
    }
    // Anything else thrown, from here on in particular, is a finding.
    const std::string printed = xml::PrintManifestXml(*first);
    const ManifestPtr second = Read(printed);
    // The JSON dump shows every field of the model.
    if (PrintManifest(*first) != PrintManifest(*second) ||
        xml::PrintManifestXml(*second) != printed) {
        __builtin_trap();
    }
    return 0;
}
