// Grouping words into cues and finding what shows at a time.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

using Word = CaptionTrack::Word;

std::vector<Word> words(const std::vector<std::string>& texts, double gap = 0.1) {
    std::vector<Word> out;
    double t = 0;
    for (const auto& text : texts) {
        out.push_back({text, t, t + 0.3, 0.9});
        t += 0.3 + gap;
    }
    return out;
}

std::vector<std::size_t> sizes(const std::vector<CaptionTrack::Cue>& cues) {
    std::vector<std::size_t> out;
    for (const auto& c : cues) {
        out.push_back(c.words.size());
    }
    return out;
}

} // namespace

TEST(CaptionCues, GroupingBreaksAtSentencesPausesAndLength) {
    EXPECT_TRUE(CaptionTrack::cuesFromWords({}, 8, 0.6).empty());
    EXPECT_EQ(
        sizes(CaptionTrack::cuesFromWords(words({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"}), 8, 0.6)),
        (std::vector<std::size_t>{8, 2}));
    EXPECT_EQ(sizes(CaptionTrack::cuesFromWords(words({"Done.", "Next", "one?", "Yes!", "ok"}), 8, 0.6)),
              (std::vector<std::size_t>{1, 2, 1, 1}));
    // Only a sentence mark as the very last character counts.
    EXPECT_EQ(sizes(CaptionTrack::cuesFromWords(words({"He", "said", "\"stop.\"", "then", "left"}), 8, 0.6)),
              (std::vector<std::size_t>{5}));
    EXPECT_EQ(sizes(CaptionTrack::cuesFromWords(words({"a", "b", "c"}), 1, 0.6)),
              (std::vector<std::size_t>{1, 1, 1}));
}

TEST(CaptionCues, APauseOfExactlyTheBreakStartsANewCue) {
    const std::vector<Word> atBreak{{"one", 0, 0.5, 1}, {"two", 1.1, 1.5, 1}};
    EXPECT_EQ(CaptionTrack::cuesFromWords(atBreak, 8, 0.6).size(), 2u);
    const std::vector<Word> under{{"one", 0, 0.5, 1}, {"two", 1.09, 1.5, 1}};
    EXPECT_EQ(CaptionTrack::cuesFromWords(under, 8, 0.6).size(), 1u);

    const auto cues = CaptionTrack::cuesFromWords(words({"a", "b"}), 8, 0.6);
    EXPECT_NE(cues[0].id, Uuid{});
}

TEST(CaptionCues, LookupsAtTheEdgesFavourTheEarlier) {
    const CaptionTrack::Cue first{Uuid::random(), {{"Hello", 1, 1.5, 1}, {"there", 1.5, 2, 1}}};
    const CaptionTrack::Cue second{Uuid::random(), {{"General", 2, 2.6, 1}}};
    EXPECT_EQ(first.text(), "Hello there");
    EXPECT_EQ(first.activeWordAt(1.5), 0u);
    EXPECT_EQ(first.activeWordAt(1.7), 1u);
    EXPECT_FALSE(first.activeWordAt(0.9).has_value());
    const CaptionTrack::Cue gapped{Uuid::random(), {{"a", 0, 1, 1}, {"b", 2, 3, 1}}};
    EXPECT_FALSE(gapped.activeWordAt(1.5).has_value());

    const CaptionTrack track{{first, second}, CaptionStyle{}, true};
    ASSERT_NE(track.cueAt(2), nullptr);
    EXPECT_EQ(track.cueAt(2)->id, first.id);
    EXPECT_EQ(track.cueAt(2.3)->id, second.id);
    EXPECT_EQ(track.cueAt(3), nullptr);

    const CaptionTrack::Cue empty{Uuid::random(), {}};
    EXPECT_EQ(empty.start(), 0);
    EXPECT_EQ(empty.end(), 0);
    EXPECT_EQ(empty.text(), "");
    const CaptionTrack withEmpty{{empty}, CaptionStyle{}, true};
    EXPECT_NE(withEmpty.cueAt(0), nullptr);
}

TEST(CaptionCoding, EveryKeyIsRequiredInsideATrack) {
    const CaptionTrack track{CaptionTrack::cuesFromWords(words({"Hi", "all."}), 8, 0.6), CaptionStyle{},
                             true};
    const Json json = toJson(track);
    EXPECT_EQ(toJson(fromJson<CaptionTrack>(json)), json);

    for (const char* key : {"cues", "style", "isEnabled"}) {
        Json broken = json;
        broken.erase(key);
        EXPECT_THROW(fromJson<CaptionTrack>(broken), CodingError) << key;
    }
    Json broken = json;
    broken["style"].erase("backgroundOpacity");
    EXPECT_THROW(fromJson<CaptionTrack>(broken), CodingError);
    broken = json;
    broken["style"]["position"] = "left";
    EXPECT_THROW(fromJson<CaptionTrack>(broken), CodingError);
    broken = json;
    broken["cues"][0]["words"][0].erase("confidence");
    EXPECT_THROW(fromJson<CaptionTrack>(broken), CodingError);

}

TEST(CaptionCues, ACorrectedTextKeepsTheTimingsWhereTheWordsStillMatch) {
    const CaptionTrack::Cue heard{Uuid::random(),
                                  {{"This", 1.0, 1.2, 0.9}, {"is", 1.25, 1.4, 0.8}, {"a", 1.45, 1.5, 0.7},
                                   {"tape", 1.6, 2.0, 0.4}}};
    // A spelling fixed: each word keeps its times.
    const CaptionTrack::Cue fixed = heard.withText("This is a take");
    ASSERT_EQ(fixed.words.size(), 4u);
    EXPECT_EQ(fixed.text(), "This is a take");
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(fixed.words[i].start, heard.words[i].start);
        EXPECT_EQ(fixed.words[i].end, heard.words[i].end);
    }
    EXPECT_EQ(fixed.id, heard.id);

    // Words added: spread over the cue's span end to end, each as long as its share of the letters.
    const CaptionTrack::Cue longer = heard.withText("This is a  take recorded");
    ASSERT_EQ(longer.words.size(), 5u);
    EXPECT_DOUBLE_EQ(longer.start(), 1.0);
    EXPECT_DOUBLE_EQ(longer.end(), 2.0);
    const double letters = 4 + 2 + 1 + 4 + 8;
    EXPECT_NEAR(longer.words[4].end - longer.words[4].start, 8 / letters * 1.0, 1e-12);
    for (std::size_t i = 1; i < longer.words.size(); ++i) {
        EXPECT_EQ(longer.words[i].start, longer.words[i - 1].end);
    }
    EXPECT_TRUE(heard.withText("  ").words.empty());
}
