#ifndef ZELQ_FOLDERREPORT_H
#define ZELQ_FOLDERREPORT_H

#include <string>

namespace zelq {

/// Complains that the state folder `path` could not be opened; `failure` is what
/// openStateFolder() returned.
void complainAboutFolder(std::string const& path, int failure);

}  // namespace zelq

#endif
