// rig_xwd_to_png: turns an X window dump (xwd, of a 24- or 32-bit TrueColor
// display such as Xvfb's) into a PNG, for the screenshots in docs/. Qt reads
// no xwd and the set-up installs no converter, hence this small reader.
#include <QByteArray>
#include <QFile>
#include <QImage>

#include <cstdint>
#include <cstdio>

namespace
{
std::uint32_t Field(const QByteArray& data, int nIndex)
{
    const auto* p = reinterpret_cast<const unsigned char*>(data.constData()) + 4 * nIndex;
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

int Shift(std::uint32_t mask)
{
    int n = 0;
    while (mask != 0 && (mask & 1u) == 0)
    {
        mask >>= 1;
        ++n;
    }
    return n;
}
} // namespace

int main(int argc, char* argv[])
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: rig_xwd_to_png <in.xwd> <out.png>\n");
        return 2;
    }
    QFile in(QString::fromLocal8Bit(argv[1]));
    if (!in.open(QIODevice::ReadOnly))
        return 1;
    const QByteArray data = in.readAll();
    if (data.size() < 100)
        return 1;
    const std::uint32_t headerSize = Field(data, 0);
    const std::uint32_t format = Field(data, 2);
    const auto width = static_cast<int>(Field(data, 4));
    const auto height = static_cast<int>(Field(data, 5));
    const std::uint32_t byteOrder = Field(data, 7);
    const std::uint32_t bitsPerPixel = Field(data, 11);
    const std::uint32_t bytesPerLine = Field(data, 12);
    const std::uint32_t masks[3] = {Field(data, 14), Field(data, 15), Field(data, 16)};
    const std::uint32_t nColors = Field(data, 19);
    const std::uint64_t pixels = std::uint64_t{headerSize} + 12ull * nColors;
    if (Field(data, 1) != 7 || format != 2 || bitsPerPixel != 32 || width <= 0 || height <= 0 ||
        pixels + std::uint64_t{bytesPerLine} * static_cast<std::uint64_t>(height) >
            static_cast<std::uint64_t>(data.size()))
    {
        std::fprintf(stderr, "rig_xwd_to_png: only 32-bit ZPixmap dumps are read\n");
        return 1;
    }
    QImage image(width, height, QImage::Format_RGB32);
    const auto* base = reinterpret_cast<const unsigned char*>(data.constData()) + pixels;
    for (int y = 0; y < height; ++y)
    {
        const unsigned char* row = base + static_cast<std::size_t>(y) * bytesPerLine;
        for (int x = 0; x < width; ++x)
        {
            const unsigned char* p = row + 4 * x;
            const std::uint32_t v = byteOrder == 0
                                        ? std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 |
                                              std::uint32_t{p[2]} << 16 | std::uint32_t{p[3]} << 24
                                        : std::uint32_t{p[3]} | std::uint32_t{p[2]} << 8 |
                                              std::uint32_t{p[1]} << 16 | std::uint32_t{p[0]} << 24;
            int c[3];
            for (int i = 0; i < 3; ++i)
                c[i] = static_cast<int>((v & masks[i]) >> Shift(masks[i]));
            image.setPixel(x, y, qRgb(c[0], c[1], c[2]));
        }
    }
    return image.save(QString::fromLocal8Bit(argv[2]), "PNG") ? 0 : 1;
}
