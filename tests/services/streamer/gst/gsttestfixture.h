#pragma once

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "gstengine.h"
#include "support/httptestserver.h"

namespace gsttest {

// A GStreamer test's surroundings: GStreamer initialised, a folder of its
// own for media and sink output, and a loopback HTTP server.
class Fixture : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        GstEngine::ensureGstInitialised();
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    // Writes bytes to the folder's file name; returns its path.
    QString write(const QString& name, const QByteArray& bytes) {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path(name);
    }
    QByteArray read(const QString& name) const {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir dir;
    zuvotest::HttpTestServer server;
};

} // namespace gsttest
