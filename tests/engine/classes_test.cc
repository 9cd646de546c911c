// The C++ classes over the engine: a table's field list, copied into a new table.
#include "engine/d4classes.h"
#include "engine_test_util.h"

namespace kvd::test {
namespace {

TEST(Classes, FieldListOfATableBuildsAnotherTable) {
  TempDir dir;
  Engine e;
  const FIELD4INFO f[] = {{"Text", 'C', 30, 0, 0}, {"VAL", 'N', 9, 3, 0}, {"DATA", 'M', 10, 0, 0},
                          {nullptr, 0, 0, 0, 0}};
  Data4 src;
  ASSERT_EQ(src.create(e.code, (dir / "src").c_str(), f), 0);
  Field4info info(src);
  ASSERT_EQ(info.numFields(), 3);
  EXPECT_STREQ(info[0].name, "TEXT") << "names come back as the file stores them";
  EXPECT_EQ(info[1].dec, 3);
  EXPECT_EQ(info.del("text"), 0);
  EXPECT_EQ(info.del("none"), e4fieldName);
  EXPECT_EQ(info.add("EXTRA", 'C', 5), 0);
  Field4info copy = info;  // the copy owns its own names
  info.free();
  EXPECT_EQ(info.numFields(), 0);
  EXPECT_EQ(info.fields()[0].name, nullptr);

  Data4 dst;
  ASSERT_EQ(dst.create(e.code, (dir / "dst").c_str(), copy.fields()), 0);
  EXPECT_EQ(dst.numFields(), 3);
  ASSERT_EQ(src.appendStart(), 0);
  src.blank();
  Field4(src, "VAL").assignDouble(2.5);
  Field4memo(Field4(src, "DATA")).assign("m\0x", 3);
  ASSERT_EQ(src.append(), 0);
  ASSERT_EQ(dst.appendBlank(), 0);
  Field4(dst, "VAL").assignField(Field4(src, "VAL"));
  Field4memo to(Field4(dst, "DATA")), from(Field4(src, "DATA"));
  ASSERT_EQ(to.setLen(from.len()), 0);
  std::memcpy(to.ptr(), from.ptr(), from.len());
  ASSERT_EQ(dst.close(), 0);
  ASSERT_EQ(dst.open(e.code, (dir / "dst").c_str()), 0);
  dst.top();
  EXPECT_STREQ(Field4(dst, "VAL").str(), "    2.500");
  EXPECT_EQ(std::string(Field4memo(Field4(dst, "DATA")).ptr(), 3), std::string("m\0x", 3));
  src.close();
  dst.close();
}

}  // namespace
}  // namespace kvd::test
