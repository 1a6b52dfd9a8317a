// Property values kept in the encoding they arrived in read the same as
// values converted on arrival.
#include "store/props.h"

#include <gtest/gtest.h>

#include "core/utils.h"
#include "mapi/mapi_ptr.h"

namespace PIM::store {
namespace {

// What a value delivers as `type` with a string cut, as text of its own kind.
std::string delivered(const Prop& prop, ULONG type, uint32_t cut) {
  SPropValue* root = nullptr;
  if (MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<void**>(&root)) != S_OK)
    return "(no memory)";
  MapiBuffer<SPropValue> owner(root);
  bool isError = false;
  DeliverOptions options;
  options.stringLimit = cut;
  if (deliver(&prop, PROP_TAG(type, prop.id()), root, *root, options, isError) != S_OK || isError)
    return "(error)";
  if (type == PT_STRING8) return root->Value.lpszA;
  std::u16string text;
  for (const WCHAR* p = root->Value.lpszW; *p; ++p) text.push_back(static_cast<char16_t>(*p));
  return toUtf8(text);
}

TEST(PropTest, Utf8TextReadsAsTheTextConvertedOnArrival) {
  const std::vector<std::string> inputs = {
      "",
      "plain",
      "Ünïcødé 😀 Ελληνικά 日本",
      "\xC3\x28 broken pair",      // a lead byte without its continuation
      "\xC0\xAF overlong slash",   // an overlong form
      "\xED\xA0\x80 surrogate",    // an encoded surrogate
      "\xF4\x90\x80\x80 too far",  // past U+10FFFF
      "cut \xE2\x82",              // truncated at the end
      std::string("nul\0inside", 10),
  };
  for (const std::string& in : inputs) {
    const Prop kept = Prop::ofUtf8Text(PR_SUBJECT_W, in);
    const Prop converted = Prop::ofText(PR_SUBJECT_W, fromUtf8(in));
    EXPECT_EQ(kept.text(), converted.text()) << in;
    EXPECT_EQ(kept.textUnits(), converted.text().size()) << in;
    EXPECT_EQ(utf8Of(kept), toUtf8(converted.text())) << in;
    EXPECT_EQ(propSize(kept), propSize(converted)) << in;
    EXPECT_TRUE(kept == converted) << in;
    for (ULONG type : {PT_UNICODE, PT_STRING8})
      for (uint32_t cut : {0u, 3u, 7u})
        EXPECT_EQ(delivered(kept, type, cut), delivered(converted, type, cut))
            << in << " type " << type << " cut " << cut;
  }
}

TEST(PropTest, MultiValuedValuesKeepEveryElement) {
  const std::vector<std::string> utf8 = {"a", "", "Zoë 😀", "\xFF"};
  std::vector<std::u16string> texts;
  for (const std::string& s : utf8) texts.push_back(fromUtf8(s));
  const Prop kept = Prop::ofMvUtf8Text(PROP_TAG(PT_MV_UNICODE, 0x6800), utf8);
  const Prop converted = Prop::ofMvText(PROP_TAG(PT_MV_UNICODE, 0x6800), texts);
  EXPECT_EQ(kept.texts(), texts);
  EXPECT_EQ(converted.texts(), texts);
  EXPECT_TRUE(kept == converted);
  ASSERT_EQ(kept.count(), 4u);
  EXPECT_EQ(kept.element(2).text(), u"Zoë 😀");
  EXPECT_EQ(kept.element(2).tag, PROP_TAG(PT_UNICODE, 0x6800));

  const std::vector<std::string> strs = {"x", "", std::string("\0y", 2)};
  EXPECT_EQ(Prop::ofMvString8(PROP_TAG(PT_MV_STRING8, 0x6801), strs).strs(), strs);
  const std::vector<Bytes> bins = {{}, {0, 1, 2}, Bytes(300, 0xAB)};
  const Prop mvBin = Prop::ofMvBinary(PROP_TAG(PT_MV_BINARY, 0x6802), bins);
  EXPECT_EQ(mvBin.bins(), bins);
  EXPECT_EQ(mvBin.element(2).bin(), bins[2]);
  const std::vector<int64_t> nums = {-1, 0, INT64_MAX};
  const Prop mvNum = Prop::ofMvNums(PROP_TAG(PT_MV_I8, 0x6803), nums);
  EXPECT_EQ(mvNum.nums(), nums);
  EXPECT_EQ(mvNum.element(0).num(), -1);
  EXPECT_EQ(Prop::ofMvText(PROP_TAG(PT_MV_UNICODE, 0x6804), {}).count(), 0u);
}

TEST(PropTest, TextComparesAcrossEncodings) {
  const struct {
    Prop a, b;
    int result;
  } cases[] = {
      {Prop::ofUtf8Text(PR_SUBJECT_W, "abc"), Prop::ofText(PR_SUBJECT_W, u"ABD"), -1},
      {Prop::ofUtf8Text(PR_SUBJECT_W, "ÉTÉ"), Prop::ofText(PR_SUBJECT_W, u"été"), 0},
      {Prop::ofUtf8Text(PR_SUBJECT_W, "b"), Prop::ofString8(PR_SUBJECT_A, "a"), 1},
      {Prop::ofBinary(PR_ENTRYID, Bytes{1, 2}), Prop::ofBinary(PR_ENTRYID, Bytes{1}), 1},
  };
  for (const auto& c : cases) {
    int result = 99;
    ASSERT_TRUE(compareProps(c.a, c.b, result)) << toUtf8(textOf(c.a));
    EXPECT_EQ(result, c.result) << toUtf8(textOf(c.a));
  }
}

}  // namespace
}  // namespace PIM::store
