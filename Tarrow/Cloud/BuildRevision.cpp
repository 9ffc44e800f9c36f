#include "Cloud/BuildRevision.h"

#ifndef KELVO_BUILD_REVISION
#define KELVO_BUILD_REVISION ""
#endif

namespace kelvo {

std::string buildRevision() {
    return KELVO_BUILD_REVISION;
}

std::string buildRevisionDescription() {
    const std::string revision = buildRevision();
    return revision.empty() ? "unknown revision (not built from a git checkout)"
                            : "revision " + revision;
}

} // namespace kelvo
