// Quay: object dumps for diagnostics. A DumpContext collects the text of one
// dump; objects print into it with objDumpPrintf and dump their children with
// ObjDumpChild, which prints an object once and refers back to it after.
//
// Printing goes through a const handle (Kel::Ptr<const DumpContext>): the
// text and the record of dumped objects are the context's mutable state.
// One thread; printing is O(length of the text printed); the record is a
// hash map by address.
// Child rules: a null child prints "%*cNULL\n" (width: the indent, character:
// a blank); a child this context has dumped prints "%*c%s dumped at line %u\n"
// (indent, its type name, the line of its first dump), or "%s dumped at line
// %u\n" at indent 0; any other child is recorded at the current line, then
// dumped by its own dumpState(ctx, indent).
// Decided here: an object is known by its address; line() counts from 1.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "Kel/Ptr.h"

namespace Quay {

class DumpContext final : public Kel::PtrInterface {
 public:
  const std::string& text() const { return text_; }
  // The 1-based line the next output starts on.
  uint32_t line() const { return line_; }
  // The line of the first dump of `object`; 0 when not dumped.
  uint32_t dumpedAt(const void* object) const;
  // Records `object` as dumped at the current line.
  void dumpedIs(const void* object) const { dumped_.emplace(object, line_); }
  void vprintf(const char* format, va_list args) const;

 private:
  mutable std::string text_;
  mutable uint32_t line_ = 1;
  mutable std::unordered_map<const void*, uint32_t> dumped_;
};

Kel::Ptr<DumpContext> dumpContextFactory();

void objDumpPrintf(const Kel::Ptr<const DumpContext>& ctx, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

template <class T>
void ObjDumpChild(const Kel::Ptr<const DumpContext>& ctx, const T* child, uint32_t indent) {
  const int width = int(indent);
  if (child == nullptr) {
    objDumpPrintf(ctx, "%*cNULL\n", width, ' ');
  } else if (const uint32_t line = ctx->dumpedAt(child)) {
    if (indent == 0) {
      objDumpPrintf(ctx, "%s dumped at line %u\n", child->typeName(), line);
    } else {
      objDumpPrintf(ctx, "%*c%s dumped at line %u\n", width, ' ', child->typeName(), line);
    }
  } else {
    ctx->dumpedIs(child);
    child->dumpState(ctx, indent);
  }
}

template <class T>
void ObjDumpChild(const Kel::Ptr<const DumpContext>& ctx, const Kel::Ptr<T>& child,
                  uint32_t indent) {
  ObjDumpChild(ctx, static_cast<const T*>(child.ptr()), indent);
}

}  // namespace Quay
