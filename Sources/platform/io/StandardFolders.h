#pragma once

#include "platform/runtime/Object.h"

#include <string>
#include <vector>

namespace zon {

class String;

// The user's standard folders as the desktop names them. Each call reads the environment again;
// nothing is created.

// $HOME when it is set and not empty, else the home folder of the user database's entry for the
// effective user; nil when neither gives one.
ZON_EXPORT Ref<String> NSHomeDirectory();
// $XDG_DATA_HOME when it is an absolute path, else the home folder's ".local/share" (a relative
// value is ignored, as the XDG base directory rules say); nil without a home folder.
ZON_EXPORT Ref<String> xdgDataHomeDirectory();
// $XDG_CONFIG_HOME when it is an absolute path, else the home folder's ".config"; nil without a
// home folder.
ZON_EXPORT Ref<String> xdgConfigHomeDirectory();
// $XDG_CACHE_HOME when it is an absolute path, else the home folder's ".cache"; nil without a
// home folder.
ZON_EXPORT Ref<String> xdgCacheHomeDirectory();
// The data folders in order of precedence: the data home, then each $XDG_DATA_DIRS folder
// (default /usr/local/share:/usr/share; relative entries are ignored).
ZON_EXPORT std::vector<std::string> xdgDataFolders();

// The user's temporary folder, always ending in "/": $TMPDIR when it is set and not empty (taken as
// the user chose it), else "/tmp/zon-<uid>/", made with mode 0700 when missing and checked to be a
// real directory of the effective user that nobody else can enter, so another user cannot plant
// files there. When that folder cannot be used the failure is logged and the answer is nil.
ZON_EXPORT Ref<String> NSTemporaryDirectory();

} // namespace zon
