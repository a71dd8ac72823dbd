// Bad values are exceptions under one base; programming faults are assertions
// (Assert.h). Every message is the system's own text, kept byte for byte.
#pragma once

#include <stdexcept>
#include <string>

namespace Kel {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value outside the range its type allows.
class RangeError : public Exception {
 public:
  using Exception::Exception;
};

// Text that does not have the canonical form being read.
class ParseError : public Exception {
 public:
  using Exception::Exception;
};

// A field of a value failed to read back; names the attribute.
class DeserializationError : public Exception {
 public:
  DeserializationError(std::string attribute, const std::string& cause)
      : Exception("Failed to deserialize attribute '" + attribute + "': " + cause),
        attribute_(std::move(attribute)) {}
  const std::string& attribute() const { return attribute_; }

 private:
  std::string attribute_;
};

// A required argument was null.
class NullArgumentError : public Exception {
 public:
  using Exception::Exception;
};

// A container or value of a size its type does not allow.
class InvalidSizeError : public Exception {
 public:
  using Exception::Exception;
};

}  // namespace Kel
