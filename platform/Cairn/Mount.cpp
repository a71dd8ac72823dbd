#include "platform/Cairn/Mount.h"

#include <string>
#include <utility>

#include "Kel/Error.h"
#include "platform/Cell/Path.h"

namespace Cairn {

Mount::Mount(Kel::String path, Kel::String typeName, Kel::String mode)
    : path_(Cell::path(path.view())), typeName_(std::move(typeName)), mode_(std::move(mode)) {
  if (mode_.view() != "r" && mode_.view() != "w") {
    throw Kel::RangeError("Cairn::Mount: mode '" + std::string(mode_.view()) + "' of '" +
                          std::string(path_.view()) + "' is neither \"r\" nor \"w\"");
  }
}

}  // namespace Cairn
