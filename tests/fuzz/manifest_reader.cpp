// Feeds arbitrary bytes to the manifest reader. Whatever it accepts must
// print and read back to the same model, and print the same again: writing
// a manifest may never change what it says.
#include <cstdint>
#include <string>
#include <vector>

#include <boost/archive/iterators/dataflow_exception.hpp>

#include "common/exception.h"
#include "ruk/io.h"
#include "xml/file.h"
#include "xml/manifest_writer.h"

namespace {

using namespace integrity_check_tool;

bool Same(const Filter& a, const Filter& b) {
    return a.arch == b.arch && a.os == b.os && a.osEdition == b.osEdition &&
           a.bitness == b.bitness && a.minVersionNt == b.minVersionNt &&
           a.maxVersionNt == b.maxVersionNt && a.linuxKernelVersion == b.linuxKernelVersion &&
           a.defined == b.defined;
}

bool Same(const std::vector<CheckInfo>& a, const std::vector<CheckInfo>& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t index = 0; index < a.size(); ++index) {
        if (a[index].type != b[index].type || a[index].value != b[index].value) {
            return false;
        }
    }
    return true;
}

bool Same(const FileInfo& a, const FileInfo& b) {
    return a.path == b.path && Same(a.filter, b.filter) && Same(a.checks, b.checks);
}

template <typename Range, typename Equal>
bool SameRange(const Range& a, const Range& b, Equal equal) {
    if (a.size() != b.size()) {
        return false;
    }
    auto left = a.begin();
    for (auto right = b.begin(); right != b.end(); ++left, ++right) {
        if (!equal(*left, *right)) {
            return false;
        }
    }
    return true;
}

bool Same(const Manifest& a, const Manifest& b) {
    return a.productName == b.productName && a.productVersion == b.productVersion &&
           a.generationDateTime == b.generationDateTime &&
           SameRange(a.environments, b.environments,
                     [](const auto& x, const auto& y) {
                         return x.key == y.key && x.value == y.value && Same(x.filter, y.filter);
                     }) &&
           SameRange(a.files, b.files,
                     [](const auto& x, const auto& y) {
                         return x.first == y.first && Same(*x.second, *y.second);
                     }) &&
           SameRange(a.directories, b.directories,
                     [](const auto& x, const auto& y) {
                         return x->path == y->path && Same(x->filter, y->filter) &&
                                SameRange(x->files, y->files, [](const auto& p, const auto& q) {
                                    return Same(*p, *q);
                                });
                     }) &&
           SameRange(a.registries, b.registries, [](const auto& x, const auto& y) {
               return x->path == y->path && Same(x->filter, y->filter) &&
                      SameRange(x->values, y->values, [](const auto& p, const auto& q) {
                          return p->name == q->name && p->type == q->type &&
                                 Same(p->filter, q->filter) && Same(p->checks, q->checks);
                      });
           });
}

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
    if (!Same(*first, *second) || xml::PrintManifestXml(*second) != printed) {
        __builtin_trap();
    }
    return 0;
}
