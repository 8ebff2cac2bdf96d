#include "metrics/instrument/CallSites.h"

#include <deque>
#include <mutex>
#include <string>
#include <unordered_set>

#include "metrics/base/OnePerProcess.h"
#include "metrics/platform/Platform.h"

namespace Metrics::detail {

namespace {

struct Kept {
    std::mutex mutex;
    std::unordered_set<std::string> texts;
    std::deque<CallSite::Texts> sites;

    const char* Text(const char* text) { return texts.emplace(text).first->c_str(); }
};

constinit OnePerProcess<Kept> theKept;

[[maybe_unused]] const bool textsStartOverInChild =
    (platform::OnForkChild([] { theKept.StartOverInChild(); }), true);

const CallSite::Texts* Keep(CallSite& site) {
    Kept& kept = theKept.Get();
    const std::lock_guard lock(kept.mutex);
    if (const auto* texts = site.kept.load()) return texts;
    const auto& texts = kept.sites.emplace_back(CallSite::Texts{kept.Text(site.name), kept.Text(site.file)});
    site.kept.store(&texts, std::memory_order_release);
    return &texts;
}

}  // namespace

const CallSite::Texts& KeepTexts(CallSite& site) {
    const CallSite::Texts* texts = site.kept.load(std::memory_order_acquire);
    return texts != nullptr ? *texts : *Keep(site);
}

}  // namespace Metrics::detail
