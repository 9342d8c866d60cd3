// What the platform's own port monitor understands in an extension file, and the engine passes over. Each
// kind is one warning for a file, at the place where it stands first: a file may hold it at every leaf.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "tools/vlmctl/extension_files/findings.h"
#include "tools/vlmctl/extension_files/source.h"

namespace vlm::ctl {

class PassedOver {
 public:
    // A leaf, or a PortStatus beside Schema. Keeps a reference to it until Say().
    void LookAt(const SourceElement& element);
    // Tells about what was seen since the last call, all of it in `file`.
    void Say(const SourceFile& file, FindingList& findings);

 private:
    struct Seen {
        Spot first;
        int places;
        std::wstring text;
    };

    void Add(const Spot& spot, std::wstring_view what, std::wstring text);

    std::map<std::wstring_view, Seen> seen_;
};

}  // namespace vlm::ctl
