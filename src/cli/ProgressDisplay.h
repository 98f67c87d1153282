#pragma once

#include "station/PortActivity.h"
#include "station/PortProgress.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <mutex>
#include <optional>

namespace station {
class PortVerdict;
}

namespace cli {

// How a long command shows its work: on a terminal one live line (elapsed time, the sequence's
// text as headline, a bar of ports done, the port and step being worked), redrawn at least once a
// second; piped, one plain line per event without control characters; with --json, one JSON
// object per event. Fed from any thread. When hubs are worked in parallel, the live line is
// followed by one line per hub naming the port and step its lane is at.
class ProgressDisplay {
  public:
    enum class Style { Terminal, Plain, Json };
    struct Options {
        Style style = Style::Plain;
        int width = 80;
        bool color = false;
        bool linePerHub = false;
    };
    using Write = std::function<void(const QByteArray&)>;
    // Milliseconds since the command started; monotonic.
    using Elapsed = std::function<qint64()>;

    ProgressDisplay(Options options, Write write, Elapsed elapsed);

    // Standard output as it is: JSON when asked, the live line on a terminal (its width, colour
    // unless NO_COLOR is set), plain lines otherwise.
    static ProgressDisplay forStandardOutput(bool json, bool linePerHub = false);

    void headline(const QString& text);
    void port(const PortProgress& event);
    void completion(bool value);
    // The check after the sequence: `confirmed` of `count` Macs show `mode` so far.
    void verifying(int confirmed, int count, const QString& mode);
    // Redraws the live line so the elapsed time and pauses move while nothing else does.
    void tick();
    // Closes the live line; in JSON, the verdict is the last event.
    void finish(const station::PortVerdict& verdict);

  private:
    void emitJson(QJsonObject object);
    void emitPlain(const QString& line);
    void redraw();
    void printFailure(const QString& line);
    QString stepText(bool withPlace) const;
    QStringList detailChoices() const;
    QString liveLine() const;
    QStringList hubLines() const;
    QString bar() const;
    void eraseLiveArea();

    Options options_;
    Write write_;
    Elapsed elapsed_;
    std::mutex mutex_;
    QString headline_;
    PortActivity activity_;
    int liveLinesDrawn_ = 0;
    int done_ = 0;
    int count_ = 0;
};

}  // namespace cli
