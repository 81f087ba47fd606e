#include "vocabulary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

namespace {

using namespace zoctl;

// The same files as the schema is tried on: each is the one with everything and one change.
TEST(VocabularyCheck, ReportsAMistakeAtItsPlace) {
    std::ifstream stream(std::string(ZO_SOURCE_DIR) + "/tests/zoctl/vocabulary/vocabulary_files.json",
                         std::ios::binary);
    const auto files = nlohmann::json::parse(stream);
    for (const auto& [kind, changes] : files.at("changes").items()) {
        for (const auto& change : changes) {
            auto document = files.at("everything");
            document[nlohmann::json::json_pointer(change[0].get<std::string>())] = change[1];
            std::vector<Mistake> mistakes;
            static_cast<void>(ReadVocabulary(document.dump(), mistakes));
            const std::string pointer = change[change.size() > 2 ? 2 : 0];
            const bool found = std::any_of(mistakes.begin(), mistakes.end(),
                                           [&](const Mistake& mistake) { return mistake.pointer == pointer; });
            EXPECT_TRUE(kind == "accepted" ? mistakes.empty() : found) << change;
        }
    }
}

// One record with a field of each type.
class VocabularyFields : public testing::Test {
  protected:
    VocabularyFields() {
        std::vector<Mistake> mistakes;
        fields_ = ReadVocabulary(R"({"version": 1, "events": {"main": [
            {"name": "kind", "offset": 0, "type": "u8", "values": {"start": 1, "freeze": 2}},
            {"name": "access", "offset": 1, "type": "u16", "flags": {"read": 1, "write": 2}},
            {"name": "result", "offset": 3, "type": "i32"},
            {"name": "time", "offset": 7, "type": "time"},
            {"name": "size", "offset": 15, "type": "u64"},
            {"name": "path", "offset": 23, "type": "utf16", "units": 4}]}})",
                                 mistakes)
                      .Fields(EventRing::kMain);
        EXPECT_TRUE(mistakes.empty());
        Put(0, 2, 1);
        Put(1, 0x8003, 2);
        Put(3, 0xFFFFFFFE, 4);
        Put(7, 125962560990000000, 8);  // 29 February 2000, 00:01:39: the last day of the 400-year cycle
        Put(15, 0xFFFFFFFFFFFFFFFF, 8);
        Put(23, 0xDC00D800005C0041, 8);  // A\, and a pair of surrogates
        Put(31, 'x', 2);                 // behind the text
    }

    void Put(std::size_t at, std::uint64_t number, std::size_t bytes) {
        for (std::size_t i = 0; i < bytes; ++i)
            record_[at + i] = static_cast<std::uint8_t>(number >> (8 * i));
    }

    std::vector<EventField> fields_;
    std::array<std::uint8_t, 562> record_{};
};

TEST_F(VocabularyFields, AreReadByTheirTypes) {
    Json values = Json::object();
    for (const EventField& field : fields_)
        values[field.name] = FieldJson(field, record_);
    // As text, because numbers that differ by 2^64 compare equal.
    EXPECT_EQ(values.dump(), Json::parse(R"({"kind": "freeze", "access": ["read", "write", "0x8000"], "result": -2,
        "time": "2000-02-29T00:01:39.000Z", "size": 18446744073709551615, "path": "A\\\ud800\udc00"})")
                                 .dump());
    EXPECT_EQ(FieldText(fields_[1], record_), "read|write|0x8000");
    Put(1, 0, 2);
    EXPECT_EQ(FieldText(fields_[1], record_), "-");
    Put(25, 0, 2);
    EXPECT_EQ(FieldText(fields_[5], record_), "A") << "the text ends at a zero";
    const std::pair<std::uint64_t, const char*> times[] = {
        {0, "1601-01-01T00:00:00.000Z"},
        {125806140000000000, "1999-08-31T23:00:00.000Z"},
        {125895960000000000, "1999-12-13T22:00:00.000Z"},
        {125963424000000000, "2000-03-01T00:00:00.000Z"},  // the first day of the 400-year cycle
        {157520160000000000, "2100-03-01T00:00:00.000Z"},  // after a February without a leap day
        {157572863999990000, "2100-04-30T23:59:59.999Z"},
        {157572864000000000, "2100-05-01T00:00:00.000Z"},
    };
    for (const auto& [ticks, time] : times) {
        Put(7, ticks, 8);
        EXPECT_EQ(FieldText(fields_[3], record_), time);
    }
}

TEST_F(VocabularyFields, ConditionsHoldByNumberNameFlagAndPattern) {
    for (const char* text : {"kind=freeze", "kind=FREEZE", "kind=2", "access=0x8003", "access=write", "access=3",
                             "result=-2", "path=a\\*", "path=?\\*", "time=2000-02-29*", "size=18446744073709551615"}) {
        EXPECT_EQ(Objection(*ParseCondition(text), fields_), "") << text;
        EXPECT_TRUE(Holds(*ParseCondition(text), fields_, record_)) << text;
    }
    for (const char* text :
         {"kind=start", "kind=3", "access=4", "access=0", "result=2", "path=b*", "other=1", "size=x"})
        EXPECT_FALSE(Holds(*ParseCondition(text), fields_, record_)) << text;
    for (const char* text : {"other=1", "kind=begin", "size=x", "kind=2x", "size=", "size=18446744073709551616"})
        EXPECT_NE(Objection(*ParseCondition(text), fields_), "") << text;
    for (const char* text : {"kind", "=1", ""})
        EXPECT_FALSE(ParseCondition(text)) << text;
}

}  // namespace
