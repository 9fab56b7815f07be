// rig_write_icon: writes the application icon, painted by the Qt front end, as
// the Windows icon file of the Win32 front end's resources (48, 32 and 24
// pixels at 32 bits per pixel), so both front ends show the same picture.
// Run by hand after the artwork changes; the output is kept in the tree.
#include <QFile>
#include <QGuiApplication>
#include <QImage>

#include <cstdint>
#include <cstdio>

#include "AppIcon.h"

namespace
{
void Put16(QByteArray& out, std::uint16_t v)
{
    out.append(static_cast<char>(v & 0xff)).append(static_cast<char>(v >> 8));
}

void Put32(QByteArray& out, std::uint32_t v)
{
    Put16(out, static_cast<std::uint16_t>(v & 0xffff));
    Put16(out, static_cast<std::uint16_t>(v >> 16));
}

/// BITMAPINFOHEADER, the BGRA rows bottom-up, then the AND mask (all zero:
/// the alpha channel decides).
QByteArray IconImage(const QImage& image)
{
    const int n = image.width();
    const int maskStride = ((n + 31) / 32) * 4;
    QByteArray out;
    Put32(out, 40);
    Put32(out, static_cast<std::uint32_t>(n));
    Put32(out, static_cast<std::uint32_t>(2 * n)); // the colour rows and the mask
    Put16(out, 1);
    Put16(out, 32);
    Put32(out, 0);
    Put32(out, static_cast<std::uint32_t>(n * n * 4 + maskStride * n));
    Put32(out, 0);
    Put32(out, 0);
    Put32(out, 0);
    Put32(out, 0);
    for (int y = n - 1; y >= 0; --y)
    {
        for (int x = 0; x < n; ++x)
        {
            const QRgb p = image.pixel(x, y);
            out.append(static_cast<char>(qBlue(p)))
                .append(static_cast<char>(qGreen(p)))
                .append(static_cast<char>(qRed(p)))
                .append(static_cast<char>(qAlpha(p)));
        }
    }
    out.append(QByteArray(maskStride * n, '\0'));
    return out;
}
} // namespace

int main(int argc, char* argv[])
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: rig_write_icon <file.ico>\n");
        return 2;
    }
    QGuiApplication application(argc, argv);
    const int sizes[] = {48, 32, 24};
    QByteArray images[3];
    for (int i = 0; i < 3; ++i)
        images[i] = IconImage(PaintAppIcon(sizes[i]).toImage().convertToFormat(QImage::Format_ARGB32));

    QByteArray file;
    Put16(file, 0);
    Put16(file, 1); // icon
    Put16(file, 3);
    std::uint32_t offset = 6 + 3 * 16;
    for (int i = 0; i < 3; ++i)
    {
        file.append(static_cast<char>(sizes[i])).append(static_cast<char>(sizes[i]));
        file.append('\0').append('\0'); // no palette, reserved
        Put16(file, 1);
        Put16(file, 32);
        Put32(file, static_cast<std::uint32_t>(images[i].size()));
        Put32(file, offset);
        offset += static_cast<std::uint32_t>(images[i].size());
    }
    for (const QByteArray& image : images)
        file.append(image);

    QFile out(QString::fromLocal8Bit(argv[1]));
    if (!out.open(QIODevice::WriteOnly) || out.write(file) != file.size())
        return 1;
    return 0;
}
