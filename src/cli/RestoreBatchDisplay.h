#pragma once

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <cstdint>

namespace cli {

// A batch of restores on the terminal: one live row per device (ECID, hub port, model, serial
// number, a bar, what it is doing) and the batch's progress message under them, redrawn in place. Piped, every
// change is one plain line instead, without control characters; with --json, one JSON object.
class RestoreBatchDisplay {
  public:
    struct Device {
        std::uint64_t ecid = 0;
        QString serialNumber;
        QString hubPort;  // "1C3B4A01:3"; empty off the hubs
        QString model;    // the marketing name, else the model identifier
    };
    enum class Style { Terminal, Plain, Json };

    // Standard output as it is: JSON when asked, live rows on a terminal, plain lines otherwise.
    RestoreBatchDisplay(QList<Device> devices, bool json);
    RestoreBatchDisplay(QList<Device> devices, Style style, int width);

    // progress < 0 keeps the bar where it was.
    void setDeviceText(std::uint64_t ecid, const QString& text, float progress = -1);
    void setMessage(const QString& message);
    // "Restore Time: 01:23", every second: on a terminal it leads the message line, so the
    // screen moves while a tool is quiet; piped or as JSON it is left out.
    void setRestoreTime(const QString& text);
    // A line of its own above the rows.
    void note(const QString& text);
    // Leaves the rows on the screen and the cursor under them.
    void finish();
    // The batch's history and exit status; in JSON, the last event. Otherwise the caller prints.
    void end(const QJsonArray& history, int exitStatus);

    // The row as drawn, cut to the width; for tests.
    QString row(int index) const;

  private:
    struct Row {
        Device device;
        QString text;
        float progress = 0;
    };

    void redraw();
    void erase();
    QString cut(const QString& line) const;
    void emitJson(QJsonObject event) const;

    QList<Row> rows_;
    QString message_;
    QString restoreTime_;
    Style style_;
    bool terminal_;
    int width_;
    QElapsedTimer elapsed_;
    int drawnLines_ = 0;
};

}  // namespace cli
