#include "RestoreOptions.h"

#include <array>
#include <cstdlib>

namespace simidevicerestore {
namespace {

struct OptionSpec {
    const char* longName;
    char shortName;  // 0 for a long option alone
    bool takesValue;
};

constexpr std::array<OptionSpec, 9> optionSpecs = {{
    {"ecid", 'i', true},
    {"erase", 'e', false},
    {"no-input", 'y', false},
    {"plain-progress", 'P', false},
    {"logfile", 0, true},
    {"cache-path", 'C', true},
    {"version", 'v', false},
    {"help", 'h', false},
    {"debug", 'd', false},
}};

const OptionSpec* findLong(const QString& name) {
    for (const OptionSpec& spec : optionSpecs)
        if (name == QLatin1String(spec.longName))
            return &spec;
    return nullptr;
}

const OptionSpec* findShort(QChar letter) {
    for (const OptionSpec& spec : optionSpecs)
        if (spec.shortName != 0 && letter == QLatin1Char(spec.shortName))
            return &spec;
    return nullptr;
}

// Answers the reason when the value is refused.
QString apply(Options& options, const OptionSpec& spec, const QString& value) {
    const QLatin1String name(spec.longName);
    if (name == QLatin1String("ecid")) {
        options.ecid = parseEcid(value);
        if (!options.ecid)
            return QStringLiteral("Could not parse ECID from '%1'").arg(value);
    } else if (name == QLatin1String("erase")) {
        options.erase = true;
    } else if (name == QLatin1String("no-input")) {
        options.noInput = true;
    } else if (name == QLatin1String("plain-progress")) {
        options.plainProgress = true;
    } else if (name == QLatin1String("logfile")) {
        options.logFile = value;
    } else if (name == QLatin1String("cache-path")) {
        options.cachePath = value;
    } else if (name == QLatin1String("version")) {
        options.showVersion = true;
    } else if (name == QLatin1String("help")) {
        options.showHelp = true;
    }
    return {};
}

class LineReader {
  public:
    explicit LineReader(const QStringList& arguments) : arguments_(arguments) {}

    OptionsParse read() {
        bool operandsOnly = false;
        for (index_ = 0; index_ < arguments_.size() && error_.isEmpty(); ++index_) {
            const QString& word = arguments_[index_];
            if (operandsOnly || word == QLatin1String("-") || !word.startsWith(u'-'))
                operands_ << word;
            else if (word == QLatin1String("--"))
                operandsOnly = true;
            else if (word.startsWith(QLatin1String("--")))
                readLong(word.mid(2));
            else
                readShortCluster(word.mid(1));
        }
        if (error_.isEmpty() && !options_.showHelp && !options_.showVersion)
            checkOperands();
        if (!error_.isEmpty())
            return {std::nullopt, error_};
        return {options_, {}};
    }

  private:
    void readLong(const QString& text) {
        const qsizetype equals = text.indexOf(u'=');
        const QString name = equals < 0 ? text : text.left(equals);
        const OptionSpec* spec = findLong(name);
        if (spec == nullptr) {
            error_ = QStringLiteral("unrecognized option '--%1'").arg(name);
        } else if (!spec->takesValue && equals >= 0) {
            error_ = QStringLiteral("option '--%1' doesn't allow an argument").arg(name);
        } else if (!spec->takesValue) {
            error_ = apply(options_, *spec, {});
        } else if (equals >= 0) {
            error_ = apply(options_, *spec, text.mid(equals + 1));
        } else if (index_ + 1 < arguments_.size()) {
            error_ = apply(options_, *spec, arguments_[++index_]);
        } else {
            error_ = QStringLiteral("option '--%1' requires an argument").arg(name);
        }
    }

    void readShortCluster(const QString& letters) {
        for (qsizetype at = 0; at < letters.size() && error_.isEmpty(); ++at) {
            const OptionSpec* spec = findShort(letters[at]);
            if (spec == nullptr) {
                error_ = QStringLiteral("invalid option -- '%1'").arg(letters[at]);
            } else if (!spec->takesValue) {
                error_ = apply(options_, *spec, {});
            } else if (at + 1 < letters.size()) {
                error_ = apply(options_, *spec, letters.mid(at + 1));
                return;
            } else if (index_ + 1 < arguments_.size()) {
                error_ = apply(options_, *spec, arguments_[++index_]);
            } else {
                error_ = QStringLiteral("option requires an argument -- '%1'").arg(letters[at]);
            }
        }
    }

    void checkOperands() {
        if (operands_.isEmpty())
            error_ = QStringLiteral("no firmware given: name an IPSW file or an extracted folder");
        else if (operands_.size() > 1)
            error_ = QStringLiteral("one firmware only, not \"%1\"").arg(operands_.join("\", \""));
        else
            options_.firmwarePath = operands_.front();
    }

    const QStringList& arguments_;
    qsizetype index_ = 0;
    Options options_;
    QStringList operands_;
    QString error_;
};

}  // namespace

OptionsParse parseOptions(const QStringList& arguments) {
    return LineReader(arguments).read();
}

std::optional<std::uint64_t> parseEcid(const QString& text) {
    const QByteArray bytes = text.toLocal8Bit();
    char* tail = nullptr;
    const unsigned long long value = std::strtoull(bytes.constData(), &tail, 0);
    if (tail == nullptr || *tail != '\0' || value == 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(value);
}

QString usageText(const QString& program) {
    return QStringLiteral(
               "Usage: %1 [OPTIONS] PATH\n"
               "\n"
               "Restores the firmware at PATH (an IPSW file or its extracted folder) to a Mac of\n"
               "the station tarvel-sim simulates (TARVEL_SIM names its socket).\n"
               "\n"
               "  -i, --ecid ECID        the Mac to restore (0x hexadecimal or decimal); without\n"
               "                         it the first Mac in DFU or recovery mode\n"
               "  -e, --erase            erase install\n"
               "  -y, --no-input         never ask\n"
               "  -P, --plain-progress   one line per progress change instead of bars\n"
               "  --logfile PATH         the log; without it restore_<ECID>_<time>.log here\n"
               "  -C, --cache-path DIR   accepted and not used\n"
               "  -d, --debug            accepted and not used\n"
               "  -v, --version          print the version and exit\n"
               "  -h, --help             print this help and exit\n")
        .arg(program);
}

}  // namespace simidevicerestore
