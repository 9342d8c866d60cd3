#include "tools/vlmctl/console/product.h"

namespace vlm::ctl {

const char* OwnVersion() {
    return VLM_VERSION;
}

}  // namespace vlm::ctl
