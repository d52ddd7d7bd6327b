// The session's tests run on a Qt event loop: the engine posts to it and its loads resume on it.

#include "support/TempDir.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    // The takes the sessions record go to a folder of the run's own, never to the person's.
    const marlowick::test::TempDir data;
    setenv("XDG_DATA_HOME", data.path().c_str(), 1);
    return RUN_ALL_TESTS();
}
