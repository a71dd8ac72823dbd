// Cairn::Mount: one request to bring a path of the state database into this
// agent: the path, the entity type expected there, and the mode, "r" to read
// or "w" to write. A plain value; a mount group files it (MountGroup.h).
//
// Decided here: the path is normalised (Cell::path) and the mode checked on
// construction, so a bad request fails where it is made: a mode other than
// "r" or "w" is a Kel::RangeError naming path and mode.
#pragma once

#include "Kel/String.h"

namespace Cairn {

class Mount {
 public:
  Mount(Kel::String path, Kel::String typeName, Kel::String mode);

  const Kel::String& path() const { return path_; }
  const Kel::String& typeName() const { return typeName_; }
  const Kel::String& mode() const { return mode_; }

  friend bool operator==(const Mount&, const Mount&) = default;

 private:
  Kel::String path_;
  Kel::String typeName_;
  Kel::String mode_;
};

}  // namespace Cairn
