#include "xml/manifest_layout.h"

#include <cstring>

namespace integrity_check_tool::xml {
namespace {

const char* const kCurrentRecords[] = {"Environment", "File", "Files", "Registry"};
const char* const kLegacyRecords[] = {"File"};

template <std::size_t N>
const char* FindName(const char* const (&names)[N], const char* name) {
    for (const char* known : names) {
        if (std::strcmp(known, name) == 0) {
            return known;
        }
    }
    return nullptr;
}

bool Is(const char* name, const char* expected) {
    return std::strcmp(name, expected) == 0;
}

}  // namespace

void ManifestLayout::Begin(RootSpan& root, const ElementStart& element, bool legacy) {
    root.found = true;
    root.begin = element.begin;
    root.tagEnd = element.tagEnd;
    root.row = element.row;
    collecting_ = &root;
    collectingDepth_ = element.depth;
    collectingLegacy_ = legacy;
}

void ManifestLayout::OnStart(const ElementStart& element) {
    if (collecting_ != nullptr && element.depth == collectingDepth_ + 1) {
        const char* name = collectingLegacy_ ? FindName(kLegacyRecords, element.name)
                                             : FindName(kCurrentRecords, element.name);
        if (name != nullptr) {
            pending_ = RecordSpan{name, element.begin, 0, element.row};
            hasPending_ = true;
        }
        return;
    }
    if (collecting_ != nullptr) {
        return;
    }
    if (element.depth == 1) {
        if (Is(element.name, "Config") && !configSeen_) {
            configSeen_ = true;
            inConfig_ = true;
        } else if (Is(element.name, "Manifest") && !topManifest_.found) {
            Begin(topManifest_, element, false);
        } else if (Is(element.name, "IntegrityManifest") && !legacy_.found) {
            Begin(legacy_, element, true);
        }
    } else if (element.depth == 2 && inConfig_ && Is(element.name, "Manifest") &&
               !configManifest_.found) {
        Begin(configManifest_, element, false);
    }
}

void ManifestLayout::OnEnd(std::size_t depth, std::size_t end) {
    if (collecting_ != nullptr) {
        if (depth == collectingDepth_ + 1 && hasPending_) {
            pending_.end = end;
            collecting_->records.push_back(pending_);
            hasPending_ = false;
        } else if (depth == collectingDepth_) {
            collecting_->end = end;
            collecting_ = nullptr;
        }
    }
    if (depth == 1) {
        inConfig_ = false;
    }
}

const RootSpan* ManifestLayout::CurrentRoot() const {
    const RootSpan& root = configSeen_ ? configManifest_ : topManifest_;
    return root.found ? &root : nullptr;
}

const RootSpan* ManifestLayout::LegacyRoot() const {
    return legacy_.found ? &legacy_ : nullptr;
}

}  // namespace integrity_check_tool::xml
