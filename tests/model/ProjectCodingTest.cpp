// How projects read and write: which keys a file may leave out and what they fall back to, what makes a
// read fail, and that what we write reads back the same.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

const char* minimalProject = R"({
  "id": "6F1C2A7E-0D4B-4E55-9B1A-3C2D4E5F6A7B",
  "name": "Launch demo",
  "source": {"mediaURL": "file:///tmp/take.mov", "size": {"width": 1920, "height": 1080},
             "frameRate": 60, "duration": 12.5}
})";

Json minimal() {
    return Json::parse(minimalProject);
}

// The message of the read's failure, or "" when it succeeds.
template <class T> std::string readFailure(const Json& json) {
    try {
        fromJson<T>(json);
    } catch (const CodingError& e) {
        return e.what();
    }
    return "";
}

} // namespace

TEST(ProjectCoding, AMinimalProjectTakesTheDefaultsAndWritesNoAbsentOptional) {
    const Project p = fromJson<Project>(minimal());
    EXPECT_EQ(p.id.toString(), "6F1C2A7E-0D4B-4E55-9B1A-3C2D4E5F6A7B");
    EXPECT_EQ(p.name, "Launch demo");
    EXPECT_EQ(p.source.mediaURL.absoluteString, "file:///tmp/take.mov");
    EXPECT_EQ(p.source.duration, 12.5);
    EXPECT_TRUE(p.source.inputEvents.empty());
    EXPECT_FALSE(p.source.capturedMicrophone);
    EXPECT_TRUE(p.source.capturedSystemAudio);
    // Everything else is as a default-made project has it: a canvas that fills, no captions, no trim.
    Project defaults;
    defaults.id = p.id;
    defaults.name = p.name;
    defaults.source = p.source;
    const Json written = toJson(p);
    EXPECT_EQ(written, toJson(defaults));
    EXPECT_EQ(p.canvas.contentMode, ContentMode::fill);
    EXPECT_FALSE(written.contains("captions"));
    EXPECT_FALSE(written.contains("trim"));
    EXPECT_FALSE(written["canvas"].contains("deviceFrame"));
    EXPECT_FALSE(written["audio"].contains("music"));
}

TEST(ProjectCoding, NullCountsAsMissingAndUnknownKeysAreIgnored) {
    Json json = minimal();
    json["captions"] = nullptr;
    json["trim"] = nullptr;
    json["cursor"] = nullptr;
    json["futureFeature"] = {{"x", 1}};
    json["source"]["hdr"] = true;
    const Project p = fromJson<Project>(json);
    EXPECT_FALSE(p.captions.has_value());
    EXPECT_EQ(p.cursor.hideWhenIdle, 3.0);

    json = minimal();
    json["name"] = nullptr;
    EXPECT_NE(readFailure<Project>(json), "");
}

TEST(ProjectCoding, CursorObjectIsAllOrNothingButHideWhenIdleMeansNever) {
    Json json = minimal();
    json["cursor"] = {{"smoothing", 0.2}, {"scale", 1.5}, {"motionBlur", false}, {"clickRipple", true}};
    const Project p = fromJson<Project>(json);
    EXPECT_FALSE(p.cursor.hideWhenIdle.has_value());
    EXPECT_EQ(p.cursor.scale, 1.5);
    EXPECT_FALSE(toJson(p)["cursor"].contains("hideWhenIdle"));

    json["cursor"].erase("motionBlur");
    EXPECT_NE(readFailure<Project>(json).find("cursor"), std::string::npos);
}

TEST(ProjectCoding, EachRequiredKeyFailsTheReadAndIsNamed) {
    struct Case {
        Json::json_pointer parent;
        const char* key;
    };
    const std::vector<Case> cases{
        {""_json_pointer, "id"},
        {""_json_pointer, "name"},
        {""_json_pointer, "source"},
        {"/source"_json_pointer, "mediaURL"},
        {"/source"_json_pointer, "size"},
        {"/source"_json_pointer, "frameRate"},
        {"/source"_json_pointer, "duration"},
        {"/source/size"_json_pointer, "height"},
    };
    for (const Case& c : cases) {
        Json json = minimal();
        json[c.parent].erase(c.key);
        const std::string failure = readFailure<Project>(json);
        EXPECT_NE(failure.find(std::string("\"") + c.key + "\""), std::string::npos)
            << c.key << ": " << failure;
    }
}

TEST(ProjectCoding, IllTypedValuesFailWithTheirPlace) {
    Json json = minimal();
    json["source"]["frameRate"] = "sixty";
    EXPECT_EQ(readFailure<Project>(json), "source.frameRate: expected a number, found a string");

    json = minimal();
    json["id"] = "not-a-uuid";
    EXPECT_NE(readFailure<Project>(json).find("is not a UUID"), std::string::npos);

    json = minimal();
    json["source"]["mediaURL"] = "";
    EXPECT_NE(readFailure<Project>(json), "");

    json = minimal();
    json["source"]["inputEvents"] = {{{"time", 1}, {"kind", "hover"}, {"location", {{"x", 1}, {"y", 2}}}}};
    EXPECT_EQ(readFailure<Project>(json), "source.inputEvents[0].kind: unknown value \"hover\"");

    json = minimal();
    json["manualCuts"] = {{{"id", "6F1C2A7E-0D4B-4E55-9B1A-3C2D4E5F6A7B"}, {"start", 1}}};
    EXPECT_EQ(readFailure<Project>(json), "manualCuts[0]: missing key \"end\"");
}

TEST(ProjectCoding, IdentifiersAreWrittenUpperCaseAndReadInEitherCase) {
    Json json = minimal();
    json["id"] = "6f1c2a7e-0d4b-4e55-9b1a-3c2d4e5f6a7b";
    EXPECT_EQ(toJson(fromJson<Project>(json))["id"], "6F1C2A7E-0D4B-4E55-9B1A-3C2D4E5F6A7B");

    const std::string fresh = Uuid::random().toString();
    EXPECT_EQ(fresh.size(), 36u);
    EXPECT_EQ(fresh[14], '4'); // version 4
    for (char c : fresh) {
        EXPECT_FALSE(c >= 'a' && c <= 'z') << fresh;
    }
}

TEST(ProjectCoding, ARichProjectWritesReadsAndWritesTheSame) {
    Project p = fromJson<Project>(minimal());
    p.canvas = Canvas::freshRecording();
    p.canvas.deviceFrame = DeviceFrame::iPhonePro();
    p.canvas.background = {Background::Image{Url::fileUrl("/home/me/Pictures/desk photo.png")}};
    p.camera.beats.push_back(
        ZoomBeat(Uuid::random(), 1, 4, {0.3, 0.6}, 1.8, 0.4, 0.5, Easing::spring, false));
    p.captions = CaptionTrack{
        CaptionTrack::cuesFromWords({{"Hello", 0.5, 0.9, 0.93}, {"world.", 1.0, 1.4, 0.81}}, 8, 0.6),
        CaptionStyle{}, true};
    p.trim = TimeMap({{3, 4.5}}, 12.5);
    p.audio.music = MusicBed::forFile(Url::fileUrl("/music/Calm Loop.m4a"));
    p.manualCuts.push_back(Span(Uuid::random(), 8, 7));
    p.source.inputEvents.push_back({0.25, InputEvent::Kind::keyPress, {10, 20}});

    const Json once = toJson(p);
    const Json twice = toJson(fromJson<Project>(once));
    EXPECT_EQ(once, twice);
    EXPECT_EQ(once["audio"]["music"]["name"], "Calm Loop");
    EXPECT_EQ(once["manualCuts"][0]["start"], 7.0);
}

TEST(ProjectCoding, NumbersThatJsonCantHoldAreRefusedOnWrite) {
    Project p = fromJson<Project>(minimal());
    p.canvas.inset = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(toJson(p), CodingError);
}

TEST(Records, SpanOrdersItsEndsButAReadKeepsWhatTheFileSays) {
    const Span s(Uuid::random(), 5, 2);
    EXPECT_EQ(s.start, 2);
    EXPECT_EQ(s.end, 5);
    EXPECT_EQ(s.duration(), 3);
    const Span fresh(Range{9, 4});
    EXPECT_EQ(fresh.start, 4);
    EXPECT_NE(fresh.id, s.id);

    const Span read = fromJson<Span>({{"id", s.id.toString()}, {"start", 5}, {"end", 2}});
    EXPECT_EQ(read.start, 5);
    EXPECT_EQ(read.end, 2);
}
