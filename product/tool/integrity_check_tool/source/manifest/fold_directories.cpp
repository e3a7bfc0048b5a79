#include <algorithm>

#include "manifest/manifest_operations.h"

namespace integrity_check_tool {
namespace {

template <typename Value>
void InheritCondition(boost::optional<Value>& own, const boost::optional<Value>& directory) {
    if (!own) {
        own = directory;
    }
}

// A file inside a directory applies only where the directory applies: the
// file keeps its own conditions and takes the directory's for the rest;
// version bounds narrow to the stricter of the two.
void InheritFilter(Filter& own, const Filter& directory) {
    InheritCondition(own.arch, directory.arch);
    InheritCondition(own.os, directory.os);
    InheritCondition(own.osEdition, directory.osEdition);
    InheritCondition(own.bitness, directory.bitness);
    if (own.minVersionNt && directory.minVersionNt) {
        own.minVersionNt = std::max(*own.minVersionNt, *directory.minVersionNt);
    }
    InheritCondition(own.minVersionNt, directory.minVersionNt);
    if (own.maxVersionNt && directory.maxVersionNt) {
        own.maxVersionNt = std::min(*own.maxVersionNt, *directory.maxVersionNt);
    }
    InheritCondition(own.maxVersionNt, directory.maxVersionNt);
    InheritCondition(own.linuxKernelVersion, directory.linuxKernelVersion);
    InheritCondition(own.defined, directory.defined);
}

}  // namespace

void FoldDirectories(Manifest& manifest) {
    for (auto& directory : manifest.directories) {
        for (auto& file : directory->files) {
            file->path = directory->path / file->path;
            InheritFilter(file->filter, directory->filter);
            if (!file->environment) {
                file->environment = directory->environment;
            }
            AddFile(manifest.files, std::move(file));
        }
    }
    manifest.directories.clear();
}

}  // namespace integrity_check_tool
