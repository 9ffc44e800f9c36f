#include "Audio/Recording/AudioRecordingController.h"

#include "Audio/Recording/RecordingError.h"

#include <QMetaObject>
#include <QPointer>
#include <QStandardPaths>

namespace kelvo {

AudioRecordingController::AudioRecordingController(std::unique_ptr<AudioRecordingWriter> writer,
                                                   QObject* parent)
    : QObject(parent),
      writer_(writer ? std::move(writer) : std::make_unique<AudioRecordingWriter>()) {}

AudioRecordingController::~AudioRecordingController() = default;

std::filesystem::path AudioRecordingController::defaultDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::DownloadLocation).toStdString();
}

void AudioRecordingController::start(int sampleRate, int channels,
                                     std::optional<std::filesystem::path> directory) {
    if (isRecording_)
        return;
    auto couldNotStart = [this](const QString& reason) {
        setErrorMessage(QString::fromUtf8(couldNotStartPrefix) + reason);
    };
    if (sampleRate < 1 || channels < 1 || channels > WAVRecordingFile::maximumChannels ||
        static_cast<std::int64_t>(sampleRate) * channels >
            WAVRecordingFile::maximumRateTimesChannels) {
        couldNotStart(QString::fromUtf8(description(RecordingError::invalidFormat)));
        return;
    }
    const std::filesystem::path folder = directory.value_or(defaultDirectory());
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        couldNotStart(QString::fromStdString(error.message()));
        return;
    }

    const QUuid session = QUuid::createUuid();
    QPointer<AudioRecordingController> self(this);
    auto failure = [self, session](const std::string& text) {
        const QString description = QString::fromStdString(text);
        // Writer thread: hop to the controller's thread; dropped if it is gone.
        QMetaObject::invokeMethod(
            self.data(),
            [self, session, description] {
                if (self)
                    self->writerFailed(session, description);
            },
            Qt::QueuedConnection);
    };
    std::filesystem::path first;
    try {
        first = writer().start(sampleRate, channels, folder, std::move(failure));
        samplesPerSecond_ = sampleRate * channels;
    } catch (const RecordingFileError& e) {
        couldNotStart(QString::fromUtf8(e.what()));
        return;
    }
    session_ = session;
    stoppedSession_ = QUuid();
    setErrorMessage(std::nullopt);
    setMessage(std::nullopt);
    setFirstFile(first);
    setStartedAt(QDateTime::currentDateTime());
    setRecording(true);
}

void AudioRecordingController::finishForQuit() {
    stop();
    const AudioRecordingWriter::Finish finish = writer_->finishWithin(quitWriting, quitClosing);
    if (!finish.closed) {
        setMessage(QString::fromUtf8(unclosedAtQuitText));
        // Destroying it would wait for the disk; the process ends with it instead.
        [[maybe_unused]] AudioRecordingWriter* busy = writer_.release();
        return;
    }
    if (finish.droppedSamples > 0 && samplesPerSecond_ > 0)
        setMessage(QString::fromUtf8(droppedAtQuitText)
                       .arg(double(finish.droppedSamples) / samplesPerSecond_, 0, 'f', 1));
}

void AudioRecordingController::stop(std::optional<QString> reason) {
    if (!isRecording_)
        return;
    writer_->stop();
    stoppedSession_ = session_;
    session_ = QUuid::createUuid();
    setStartedAt(std::nullopt);
    setMessage(reason.value_or(QString::fromUtf8(savedText)));
    setRecording(false);
}

void AudioRecordingController::writerFailed(const QUuid& session, const QString& description) {
    if (session == stoppedSession_) {
        // The last part of a stopped recording could not be closed: it is not "saved".
        setMessage(std::nullopt);
        setErrorMessage(QString::fromUtf8(stoppedPrefix) + description);
        return;
    }
    if (session != session_ || !isRecording_)
        return;
    session_ = QUuid::createUuid();
    setStartedAt(std::nullopt);
    setErrorMessage(QString::fromUtf8(stoppedPrefix) + description);
    setRecording(false);
}

void AudioRecordingController::setRecording(bool recording) {
    if (isRecording_ == recording)
        return;
    isRecording_ = recording;
    emit isRecordingChanged();
}

void AudioRecordingController::setStartedAt(std::optional<QDateTime> startedAt) {
    if (startedAt_ == startedAt)
        return;
    startedAt_ = std::move(startedAt);
    emit startedAtChanged();
}

void AudioRecordingController::setMessage(std::optional<QString> message) {
    if (message_ == message)
        return;
    message_ = std::move(message);
    emit messageChanged();
}

void AudioRecordingController::setErrorMessage(std::optional<QString> message) {
    if (errorMessage_ == message)
        return;
    errorMessage_ = std::move(message);
    emit errorMessageChanged();
}

void AudioRecordingController::setFirstFile(std::optional<std::filesystem::path> file) {
    if (firstFile_ == file)
        return;
    firstFile_ = std::move(file);
    emit firstFileChanged();
}

QString AudioRecordingController::firstFileOrEmpty() const {
    return firstFile_ ? QString::fromStdString(firstFile_->string()) : QString();
}

} // namespace kelvo
