#pragma once

#include <cstddef>
#include <vector>

#include "xml/text_check.h"

namespace integrity_check_tool::xml {

// A record element directly under a manifest root: its name is one of the
// fixed names the reader knows, so it is kept as that literal.
struct RecordSpan {
    const char* name = nullptr;
    std::size_t begin = 0;
    std::size_t end = 0;  // one past its end tag
    int row = 0;
};

struct RootSpan {
    bool found = false;
    std::size_t begin = 0;
    std::size_t tagEnd = 0;  // one past the start tag
    std::size_t end = 0;
    int row = 0;
    std::vector<RecordSpan> records;  // document order
};

// Finds, while the text is checked, the roots a manifest may have and the
// record elements under them, so that the document builder only ever sees
// one record at a time. Elements the reader ignores cost nothing.
class ManifestLayout : public IElementObserver {
public:
    void OnStart(const ElementStart& element) override;
    void OnEnd(std::size_t depth, std::size_t end) override;

    // "Manifest" inside the first top-level "Config" when there is one,
    // else the first top-level "Manifest"; null when that is absent.
    const RootSpan* CurrentRoot() const;
    // The first top-level "IntegrityManifest" (never inside "Config").
    const RootSpan* LegacyRoot() const;

private:
    void Begin(RootSpan& root, const ElementStart& element, bool legacy);

    bool configSeen_ = false;
    bool inConfig_ = false;
    RootSpan configManifest_;
    RootSpan topManifest_;
    RootSpan legacy_;

    RootSpan* collecting_ = nullptr;
    std::size_t collectingDepth_ = 0;
    bool collectingLegacy_ = false;
    bool hasPending_ = false;
    RecordSpan pending_;
};

}  // namespace integrity_check_tool::xml
