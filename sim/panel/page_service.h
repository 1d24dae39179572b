// The web panel's two pieces that do not need the simulated host: its call
// of the translation service for a request the pane posted, and its reading
// of the scripts the pane runs in it. The Linux stand-in page and the
// Windows stand-in of the browser component share them.
#pragma once

#include <string>

namespace qb::sim {

// What the page posts back for a `translateBatchRequest` (terminology
// false) or a `terminologyResolveRequest` (true) after asking the service
// at the endpoint in force with `token` as bearer (none when empty): the
// JSON text of a `translateBatchResult` or `terminologyResolveResult` web
// message under the request's id, `ok` with the translations and unit ids
// or the result object, or `ok` false with a code and a message. Blocks
// for the length of the HTTP exchange; never throws.
std::u16string PageServiceAnswer(const std::u16string& requestJson, bool terminology,
                                 const std::u16string& token);

// A script the pane ran in the page, as the page reads it.
struct PageScript {
    enum class Kind {
        Other,        // none of the shapes below: the page ignores it
        Call,         // `window.NAME&&window.NAME(ARGS)`
        LocalAnswer,  // the answer of a local query: `..._onResponse(ARGS)`
        Preview,      // the selection preview: `...onSelectionPreview(ARGS)`
    };
    Kind kind = Kind::Other;
    std::u16string name;  // the function of a Call
    std::u16string args;  // the argument text, without the parentheses
};

PageScript ReadPageScript(const std::u16string& script);

}  // namespace qb::sim
