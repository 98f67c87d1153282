#pragma once

#include <QString>

#include <string_view>

// The three levels every part of the system logs through. Each also copies the message to the
// system log, debug lines included, before the logger applies its debug gate.
void ZMRLogDebug(const QString& message);
void ZMRLogLevel1(const QString& message);
void ZMRLogLevel0(const QString& message);

// Source-located forms: "File:line function message". The file is the last piece of the path.
void ZMRLogAtLevel1(const QString& message, const QString& file, int line, const QString& function);
void ZMRLogDebugAt(const QString& message, const QString& file, int line, const QString& function);
void ZMRLogAtLevel0(const QString& message, const QString& file, int line, const QString& function);

namespace core {

// The system-log entry for a message: line feeds become the two characters "\n".
QString systemLogEntry(const QString& message);

// "File:line function message", or nothing when the path names no file.
QString sourceLocatedMessage(const QString& message, const QString& file, int line,
                             const QString& function);

// A source path without its extension, so files are named as in "Model/AutoDFU".
constexpr std::string_view withoutExtension(std::string_view path) {
    const auto slash = path.rfind('/');
    const auto dot = path.rfind('.');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
        return path;
    return path.substr(0, dot);
}

inline QString sourceFile(std::string_view path) {
    const std::string_view trimmed = withoutExtension(path);
    return QString::fromUtf8(trimmed.data(), static_cast<qsizetype>(trimmed.size()));
}

}  // namespace core

#define TARVEL_LOG_AT1(message) \
    ZMRLogAtLevel1((message), core::sourceFile(__FILE__), __LINE__, QString::fromUtf8(__func__))
#define TARVEL_LOG_AT0(message) \
    ZMRLogAtLevel0((message), core::sourceFile(__FILE__), __LINE__, QString::fromUtf8(__func__))
#define TARVEL_LOG_DEBUG_AT(message) \
    ZMRLogDebugAt((message), core::sourceFile(__FILE__), __LINE__, QString::fromUtf8(__func__))
