// Kel::String: one pointer, shared bytes, byte order, quoted canonical form.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "Kel/String.h"

namespace {

TEST(KelString, EmptyIsOneNullPointer) {
  static_assert(sizeof(Kel::String) == sizeof(void*));
  Kel::String e;
  EXPECT_TRUE(e.empty());
  EXPECT_EQ(e.size(), 0u);
  EXPECT_EQ(e.view().data(), nullptr);
  EXPECT_EQ(Kel::String("").view().data(), nullptr);
  EXPECT_EQ(e, Kel::String(std::string_view()));
}

TEST(KelString, CopiesShareTheBytesAndOutliveTheOriginal) {
  auto original = std::make_unique<Kel::String>("Ethernet1");
  Kel::String copy = *original;
  Kel::String assigned;
  assigned = copy;
  EXPECT_EQ(copy.view().data(), original->view().data());
  EXPECT_EQ(assigned.view().data(), original->view().data());
  original.reset();
  Kel::String moved = std::move(copy);
  EXPECT_TRUE(copy.empty());
  assigned = assigned;  // self-assignment keeps the count right
  moved = std::move(moved);
  EXPECT_EQ(moved.view(), "Ethernet1");
  EXPECT_EQ(assigned.view(), "Ethernet1");
  moved = Kel::String();
  EXPECT_TRUE(moved.empty());
  EXPECT_EQ(assigned.size(), 9u);
}

TEST(KelString, EqualityAndByteOrder) {
  const Kel::String a("abc"), b(std::string("abc")), c("abd"), high("\xff");
  EXPECT_EQ(a, b);
  EXPECT_NE(a.view().data(), b.view().data());
  EXPECT_FALSE(a == c);
  EXPECT_LT(a, c);
  EXPECT_LT(Kel::String("ab"), a);
  EXPECT_LT(Kel::String(), Kel::String("a"));
  // Bytes compare unsigned: 0xff sorts after every ASCII letter.
  EXPECT_LT(c, high);
  EXPECT_FALSE(high < c);
  EXPECT_EQ(a.hash(7), Kel::hashString("abc", 7));
  EXPECT_EQ(Kel::String().hash(7), Kel::hashString("", 7));
}

TEST(KelString, CanonicalFormRoundTrips) {
  for (const char* text : {"", "Vlan10", "it's a \\ back", "'"}) {
    const Kel::String s(text);
    const std::string strep = Kel::valueToStrep(s);
    EXPECT_EQ(Kel::strepToValue<Kel::String>(strep), s) << strep;
  }
  EXPECT_EQ(Kel::valueToStrep(Kel::String("it's")), "'it\\'s'");
  EXPECT_EQ(Kel::valueToStrep(Kel::String()), "''");
  std::ostringstream os;
  os << Kel::String("it's");
  EXPECT_EQ(os.str(), "it's");
  EXPECT_THROW(Kel::strepToValue<Kel::String>("abc"), Kel::ParseError);
  EXPECT_THROW(Kel::strepToValue<Kel::String>("'abc"), Kel::ParseError);
}

}  // namespace
