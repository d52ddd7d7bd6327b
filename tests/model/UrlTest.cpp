// File URLs: what paths become in a file and back.

#include "model/Url.h"

#include <gtest/gtest.h>

using namespace marlowick;

TEST(Url, FileUrlsRoundTripAwkwardPaths) {
    for (const std::string path : {"/tmp/take-1.mov", "/home/me/My Movies/demo #2 (final).mov",
                                   "/data/caf\xC3\xA9/100%.mov", "/a/b?c.mov"}) {
        const Url url = Url::fileUrl(path);
        EXPECT_TRUE(url.isFileUrl());
        EXPECT_EQ(url.path(), path) << url.absoluteString;
        EXPECT_EQ(url.absoluteString.find(' '), std::string::npos);
    }
    EXPECT_EQ(Url::fileUrl("/home/me/My Movies/a.mov").absoluteString, "file:///home/me/My%20Movies/a.mov");
}

TEST(Url, OtherFormsOfFileUrls) {
    EXPECT_EQ(Url{"file://localhost/tmp/x.mov"}.path(), "/tmp/x.mov");
    EXPECT_EQ(Url{"FILE:///tmp/x.mov"}.path(), "/tmp/x.mov");
    EXPECT_EQ(Url{"file:/tmp/x.mov"}.path(), "/tmp/x.mov");
    EXPECT_TRUE(Url{"https://example.invalid/x.mov"}.path().empty());
    EXPECT_FALSE(Url{"https://example.invalid/x.mov"}.isFileUrl());
}
