#include "capture/JpegEncoder.h"

#include "base/Log.h"
#include "capture/YcbcrKernel.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <vector>

#include <jpeglib.h> // needs <cstdio> before it

namespace ostrel {

namespace {

constexpr int quality = 72;
/// What the library takes at once: two rows of blocks, with one row of each colour's.
constexpr int stripRows = 2 * DCTSIZE;
constexpr int colourRows = DCTSIZE;

/// Sixteen rows of a picture as the library encodes them. So few stay in the nearest caches, and converting them
/// ourselves takes a third of what the library takes for it.
class Strip
{
public:
    explicit Strip(int width) : m_width(std::size_t(paddedToYcbcrColumns(width)))
    {
        m_samples.resize(m_width * stripRows + m_width / 2 * colourRows * 2);
    }

    /// @param top a row of the picture; where it ends before the strip does, its last row goes on
    void fill(const FrameView &image, int top)
    {
        for (int row = 0; row < stripRows; row += 2) {
            if (top + row >= image.height) {
                repeatLast(row);
                continue;
            }
            point(row);
            convertToYcbcr(rowsAt(image, top + row), rowsAt(image, top + row + 2), image.width,
                           {.upperLuma = m_luma[std::size_t(row)],
                            .lowerLuma = m_luma[std::size_t(row) + 1],
                            .blueness = m_blueness[std::size_t(row) / 2],
                            .redness = m_redness[std::size_t(row) / 2]});
        }
    }

    JSAMPIMAGE planes() { return m_planes.data(); }

private:
    /// Two rows; below the picture its last one again.
    static RowPair rowsAt(const FrameView &image, int top)
    {
        const auto row = [&image](int y) { return image.pixels + std::min(y, image.height - 1) * image.stride; };
        return {.upper = row(top), .lower = row(top + 1)};
    }

    /// Gives two rows their own memory.
    void point(int row)
    {
        const auto at = std::size_t(row);
        std::uint8_t *const colours = m_samples.data() + m_width * stripRows;
        m_luma[at] = m_samples.data() + at * m_width;
        m_luma[at + 1] = m_luma[at] + m_width;
        m_blueness[at / 2] = colours + at / 2 * m_width;
        m_redness[at / 2] = m_blueness[at / 2] + m_width / 2;
    }

    void repeatLast(int row)
    {
        const auto at = std::size_t(row);
        m_luma[at] = m_luma[at + 1] = m_luma[at - 1];
        m_blueness[at / 2] = m_blueness[at / 2 - 1];
        m_redness[at / 2] = m_redness[at / 2 - 1];
    }

    std::size_t m_width;
    std::vector<std::uint8_t> m_samples;
    std::array<JSAMPROW, stripRows> m_luma{};
    std::array<JSAMPROW, colourRows> m_blueness{};
    std::array<JSAMPROW, colourRows> m_redness{};
    std::array<JSAMPARRAY, 3> m_planes{m_luma.data(), m_blueness.data(), m_redness.data()};
};

/// Of the worst picture, headers included.
std::size_t largestFile(const FrameView &image)
{
    constexpr std::size_t headers = 2048;
    constexpr std::size_t bytesPerPixel = 3;
    const auto padded = [](int side) { return std::size_t(paddedToYcbcrColumns(side)); };
    return padded(image.width) * padded(image.height) * bytesPerPixel + headers;
}

void warn(const FrameView &image, const char *why)
{
    qCWarning(logScreenCapture, "encoding a picture of %dx%d failed: %s", image.width, image.height, why);
}

} // namespace

/// The library with what it calls back. It tells failures by a call that must not return.
class JpegEncoder::Compressor
{
public:
    Compressor()
    {
        m_library.err = jpeg_std_error(&m_errors);
        m_errors.error_exit = [](j_common_ptr library) { std::longjmp(of(library).m_failed, 1); };
        m_errors.output_message = [](j_common_ptr) {};
        m_library.client_data = this;
        m_destination.init_destination = [](j_compress_ptr) {};
        m_destination.empty_output_buffer = [](j_compress_ptr library) -> boolean {
            library->err->error_exit(reinterpret_cast<j_common_ptr>(library)); // cannot be: it holds the worst picture
            return FALSE;
        };
        m_destination.term_destination = [](j_compress_ptr) {};
        if (setjmp(m_failed) == 0) {
            jpeg_create_compress(&m_library);
            m_library.dest = &m_destination;
            m_isMade = true;
        }
    }

    ~Compressor() { jpeg_destroy_compress(&m_library); }
    Compressor(const Compressor &) = delete;
    Compressor &operator=(const Compressor &) = delete;

    /// @param image of a size that a file can hold
    std::optional<std::span<const std::uint8_t>> encode(const FrameView &image)
    {
        reserve(largestFile(image));
        Strip strip(image.width);
        if (!m_isMade || !write(image, strip)) {
            warn(image, message().data());
            return std::nullopt;
        }
        return std::span<const std::uint8_t>(m_buffer.get(), m_capacity - m_destination.free_in_buffer);
    }

private:
    static Compressor &of(j_common_ptr library) { return *static_cast<Compressor *>(library->client_data); }

    void reserve(std::size_t bytes)
    {
        if (bytes <= m_capacity)
            return;
        // Uninitialised on purpose: it is sized for the worst picture, and pages that are never written cost nothing.
        m_buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bytes);
        m_capacity = bytes;
    }

    /// Nothing in here has a destructor, for a failure leaves it by longjmp.
    bool write(const FrameView &image, Strip &strip)
    {
        if (setjmp(m_failed) != 0) {
            jpeg_abort_compress(&m_library);
            return false;
        }
        configure(image);
        m_destination.next_output_byte = m_buffer.get();
        m_destination.free_in_buffer = m_capacity;
        jpeg_start_compress(&m_library, TRUE);
        for (int top = 0; top < image.height; top += stripRows) {
            strip.fill(image, top);
            jpeg_write_raw_data(&m_library, strip.planes(), stripRows);
        }
        jpeg_finish_compress(&m_library);
        return true;
    }

    /// The library's defaults are half of the colour each way, and the standard's tables.
    void configure(const FrameView &image)
    {
        m_library.image_width = JDIMENSION(image.width);
        m_library.image_height = JDIMENSION(image.height);
        m_library.input_components = 3;
        m_library.in_color_space = JCS_YCbCr;
        jpeg_set_defaults(&m_library);
        jpeg_set_quality(&m_library, quality, TRUE);
        m_library.dct_method = JDCT_FASTEST;
        m_library.raw_data_in = TRUE;
    }

    std::array<char, JMSG_LENGTH_MAX> message()
    {
        std::array<char, JMSG_LENGTH_MAX> text{};
        m_errors.format_message(reinterpret_cast<j_common_ptr>(&m_library), text.data());
        return text;
    }

    jpeg_compress_struct m_library{};
    jpeg_error_mgr m_errors{};
    jpeg_destination_mgr m_destination{};
    std::jmp_buf m_failed{};
    bool m_isMade = false;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::size_t m_capacity = 0;
};

JpegEncoder::JpegEncoder() : m_compressor(std::make_unique<Compressor>()) {}

JpegEncoder::~JpegEncoder() = default;

std::optional<std::span<const std::uint8_t>> JpegEncoder::makeJPEGData(const FrameView &image)
{
    if (!image.pixels || image.width <= 0 || image.height <= 0 || image.stride <= 0)
        return std::nullopt;
    if (image.width > JPEG_MAX_DIMENSION || image.height > JPEG_MAX_DIMENSION) {
        warn(image, "a file can't hold as much");
        return std::nullopt;
    }
    return m_compressor->encode(image);
}

} // namespace ostrel
