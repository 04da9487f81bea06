// The value tree: what each access does to an object, the texts it gives, and trees that nest far
// deeper than the call stack.
#include "protocol/object.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace tolven {
namespace {

using namespace std::literals;

enum Code { CODE_LOW = -2 };

TEST(PObject, IntegersKeepTheirSignAndAreCutOnReading) {
  PObject o(5);
  EXPECT_EQ((o = -1).asUInt64(), ~0ull);
  EXPECT_EQ((o = 0xFFFFFFFFu).asUInt64(), 0xFFFFFFFFull);
  EXPECT_EQ(o.asInt32(), -1);
  EXPECT_EQ((o = CODE_LOW).asInt64(), -2);
  EXPECT_EQ((o = true).asUInt64(), 1u);
  EXPECT_EQ((o = 0x1FF80).asInt8(), -128);
  o = PObject::integer_type{1} << 32;
  EXPECT_EQ(o.asString(), "0");
  EXPECT_EQ(o.toString(), "4294967296");
  EXPECT_EQ(PObject("7").asInt32(), 0);
  EXPECT_TRUE(o.asBool() && !PObject(0).asBool() && PObject("0").asBool() && !PObject("").asBool());
}

TEST(PObject, EmptinessAndTypes) {
  PObject slice;
  slice.asBinary().length = 9;
  EXPECT_TRUE(slice.isEmpty() && slice.isBinary() && slice.isPrimitive());
  slice.asBinary() = {3, 0, "/f"};
  EXPECT_FALSE(slice.isEmpty());
  EXPECT_EQ(slice.toString(), "{offset: 3, length: 0, path: \"/f\"}");
  EXPECT_FALSE(PObject(0).isEmpty());
  EXPECT_TRUE(PObject().isEmpty() && PObject().isNull() && PObject("").isEmpty());
  EXPECT_EQ(PObject::type_trait<PObject::map_type>(), 2);
  EXPECT_EQ(PObject::type_trait<PObject::binary_type>(), 5);
}

TEST(PObject, ConstReadsChangeNothingAndTheOthersMakeWhatTheyName) {
  PObject o;
  const PObject& view = o;
  EXPECT_TRUE(view["a"]["b"][3].isNull() && view.isNull());
  EXPECT_EQ(&view.asMap(), &PObject::empty_map);
  o["a"]["b"] = 1;
  EXPECT_EQ(view["a"]["b"].asInt32(), 1);
  EXPECT_FALSE(view["a"].hasMember("c") || view["a"]["b"].hasMember("c"));
  o = 5;
  o["x"s];
  EXPECT_EQ(o.toString(), "{\"x\": null}");
  o.asArray().emplace_back("e");
  EXPECT_EQ(o.toString(), "[\"e\"]");
  EXPECT_EQ(view[0].asString(), "e");
  EXPECT_TRUE(view[1].isNull() && view[-1].isNull());
  try {
    o[0];  // elements of an array are changed through asArray()
    ADD_FAILURE();
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "out_of_range: PObject::operator[]");
  }
  o.asMap();
  o["b"] = 2;
  o["a"] = 1;
  o[1] = 3;
  EXPECT_EQ(view[1].asInt32(), 3);
  EXPECT_TRUE(view[2].isNull() && view[-1].isNull());
  EXPECT_THROW(o[2], std::out_of_range);
}

TEST(PObject, TextsFollowTheOrderOfBytes) {
  PObject o;
  o["b\xc3\xa9"] = "a\"b";
  o["B"].asArray() = {PObject(), PObject(1), PObject("x")};
  o["B"].asArray()[0].asMap();
  o["a"].asArray();
  EXPECT_EQ(o.toString(), "{\"B\": [{}, 1, \"x\"], \"a\": [], \"b\xc3\xa9\": \"a\"b\"}");
}

TEST(PObject, AssignmentFromItselfAndFromItsOwnTree) {
  PObject o;
  o["a"]["b"].asArray() = {PObject("deep enough to live on the heap, not in place"), PObject(2)};
  const std::string inner = o["a"]["b"].toString().str();
  PObject copy(o);
  o = o["a"]["b"];
  EXPECT_EQ(o.toString(), inner);
  copy = std::move(copy["a"]);
  EXPECT_EQ(copy["b"].toString(), inner);
  copy = copy.asMap();
  copy = copy["b"].asArray();
  EXPECT_EQ(copy.toString(), inner);
  o = *&o;
  EXPECT_TRUE(o.isNull());
  PObject moved(std::move(copy));
  EXPECT_TRUE(copy.isNull());  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
  copy.swap(moved);
  EXPECT_EQ(copy.asArray().size(), 2u);
}

// Every shape in which containers can hang on each other: alone, before, between and after leaves,
// in arrays and in maps, with empty ones between them.
TEST(PObject, DeepTreesAreCopiedPrintedAndFreedWithoutTheCallStack) {
  constexpr int kDepth = 300'000;
  PObject tree("core");
  std::string head, tail;
  for (int i = 0; i < kDepth; ++i) {
    PObject outer;
    if (i % 4 == 0) {
      outer.asArray().push_back(std::move(tree));
    } else if (i % 4 == 1) {
      auto& list = outer.asArray();
      list.emplace_back().asArray().emplace_back("x");
      list.emplace_back().asMap();
      list.push_back(std::move(tree));
      list.emplace_back(1);
    } else if (i % 4 == 2) {
      outer["b"] = std::move(tree);
      outer["a"]["k"].asArray();
      outer["c"] = "leaf";
    } else {
      outer["only"] = std::move(tree);
    }
    tree = std::move(outer);
  }
  const PObject copy(tree);
  tree["only"]["b"].asArray()[2].clear();
  EXPECT_EQ(tree.toString(),
            "{\"only\": {\"a\": {\"k\": []}, \"b\": [[\"x\"], {}, null, 1], \"c\": \"leaf\"}}");
  const ustring text = copy.toString();
  EXPECT_EQ(text.find("{\"only\": {\"a\": {\"k\": []}, \"b\": [[\"x\"], {}, [{\"only\": "), 0u);
  EXPECT_NE(text.find("[\"core\"]"), ustring::npos);
  const PObject* inner = &copy;
  for (int i = kDepth - 1; i >= 0; --i) {
    inner = i % 4 == 0   ? &(*inner)[0]
            : i % 4 == 1 ? &(*inner)[2]
            : i % 4 == 2 ? &(*inner)["b"]
                         : &(*inner)["only"];
  }
  EXPECT_EQ(inner->asStringView(), "core");
}

}  // namespace
}  // namespace tolven
