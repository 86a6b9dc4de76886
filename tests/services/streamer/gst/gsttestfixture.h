#pragma once

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

#include "gstengine.h"
#include "gsttestmedia.h"
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
    AudioSinkSpec wavSink() const {
        return AudioSinkSpec(AudioSinkSpec::Kind::Wav, path(QStringLiteral("out.wav")));
    }
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
    // Seconds of 16-bit stereo audio in the WAV file name, at its own rate.
    double seconds(const QString& name) const {
        const QByteArray wav = read(name);
        return wav.size() < 28
                   ? 0.0
                   : gsttest::wavSamples(wav).size() / 2.0 / qFromLittleEndian<quint32>(wav.constData() + 24);
    }

    QTemporaryDir dir;
    zuvotest::HttpTestServer server;
};

} // namespace gsttest
