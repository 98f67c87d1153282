// Writes the application's two sounds as WAV files, so the repository holds no recordings:
// "finishSound", a rising three-note chime for a batch that ended well, and "fail", two falling
// low tones for a restore that did not. 16-bit mono PCM at 44.1 kHz.
//
//   tarvel-sound-synth DIRECTORY
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

namespace {

constexpr int kRate = 44100;

struct Note {
    double hertz;
    double start;     // seconds
    double length;    // seconds
    double loudness;  // 0 to 1
    bool hollow;      // odd harmonics: a buzzier, warning tone
};

std::vector<std::int16_t> render(const std::vector<Note>& notes, double seconds) {
    std::vector<double> mix(static_cast<std::size_t>(seconds * kRate), 0.0);
    for (const Note& note : notes) {
        const auto first = static_cast<std::size_t>(note.start * kRate);
        const auto count = static_cast<std::size_t>(note.length * kRate);
        for (std::size_t i = 0; i < count && first + i < mix.size(); ++i) {
            const double t = double(i) / kRate;
            // A quick attack and an exponential fade keep the notes free of clicks.
            const double envelope = std::min(1.0, t / 0.008) * std::exp(-4.0 * t / note.length);
            const double phase = 2 * std::numbers::pi * note.hertz * t;
            double wave = std::sin(phase);
            if (note.hollow)
                wave += std::sin(3 * phase) / 3 + std::sin(5 * phase) / 5;
            else
                wave += 0.3 * std::sin(2 * phase);
            mix[first + i] += note.loudness * envelope * wave;
        }
    }
    std::vector<std::int16_t> samples(mix.size());
    for (std::size_t i = 0; i < mix.size(); ++i)
        samples[i] = static_cast<std::int16_t>(std::clamp(mix[i], -1.0, 1.0) * 32000);
    return samples;
}

void put(std::ofstream& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.put(static_cast<char>((value >> (8 * i)) & 0xFF));
}

bool write(const std::string& path, const std::vector<std::int16_t>& samples) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    const auto data = static_cast<std::uint32_t>(samples.size() * 2);
    out.write("RIFF", 4);
    put(out, 36 + data, 4);
    out.write("WAVEfmt ", 8);
    put(out, 16, 4);            // format chunk size
    put(out, 1, 2);             // PCM
    put(out, 1, 2);             // mono
    put(out, kRate, 4);
    put(out, kRate * 2, 4);     // bytes a second
    put(out, 2, 2);             // bytes a frame
    put(out, 16, 2);            // bits a sample
    out.write("data", 4);
    put(out, data, 4);
    for (const std::int16_t sample : samples) put(out, static_cast<std::uint16_t>(sample), 2);
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tarvel-sound-synth DIRECTORY\n");
        return 2;
    }
    const std::string folder = argv[1];
    const auto finish = render({{523.25, 0.00, 0.45, 0.35, false},
                                {659.25, 0.14, 0.45, 0.35, false},
                                {783.99, 0.28, 0.70, 0.35, false}},
                               1.0);
    const auto fail = render({{220.00, 0.00, 0.35, 0.30, true}, {174.61, 0.30, 0.60, 0.30, true}},
                             0.95);
    if (!write(folder + "/finishSound.wav", finish) || !write(folder + "/fail.wav", fail)) {
        std::fprintf(stderr, "tarvel-sound-synth: cannot write to %s\n", folder.c_str());
        return 1;
    }
    return 0;
}
