// Table-driven bad-input cases shared by the layers' BadInputTest: each row
// is a text that a value type's parse refuses, with the exact error. The
// check also shows that the variable the parse was to assign keeps its
// value (a parse builds a fresh value, so a refusal stores nothing).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Error.h"
#include "Kel/Strep.h"

namespace BadInput {

struct Row {
  std::string text;
  std::string error;
};

template <class T>
void expectRefused(const T& stored, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    T kept = stored;
    try {
      kept = Kel::strepToValue<T>(row.text);
      ADD_FAILURE() << "accepted: " << row.text;
    } catch (const Kel::Exception& e) {
      EXPECT_EQ(e.what(), row.error) << row.text;
    }
    EXPECT_EQ(valueToStrep(kept), valueToStrep(stored)) << row.text;
  }
}

}  // namespace BadInput
