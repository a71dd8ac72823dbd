#include "platform/Quay/DumpContext.h"

#include <algorithm>
#include <cstdio>

namespace Quay {

uint32_t DumpContext::dumpedAt(const void* object) const {
  const auto it = dumped_.find(object);
  return it == dumped_.end() ? 0 : it->second;
}

void DumpContext::vprintf(const char* format, va_list args) const {
  va_list again;
  va_copy(again, args);
  const int n = std::vsnprintf(nullptr, 0, format, args);
  if (n > 0) {
    const size_t start = text_.size();
    text_.resize(start + size_t(n) + 1);
    std::vsnprintf(text_.data() + start, size_t(n) + 1, format, again);
    text_.resize(start + size_t(n));
    line_ += uint32_t(std::count(text_.begin() + long(start), text_.end(), '\n'));
  }
  va_end(again);
}

Kel::Ptr<DumpContext> dumpContextFactory() { return Kel::makePtr<DumpContext>(); }

void objDumpPrintf(const Kel::Ptr<const DumpContext>& ctx, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ctx->vprintf(format, args);
  va_end(args);
}

}  // namespace Quay
