"""Bottom-up Windows BMP files of 16-pixel-high pictures, for the scripts that
draw the program's bitmaps."""
import struct


def bmp_header(width, height, bits, data, palette=b""):
    info = struct.pack("<IiiHHIIiiII", 40, width, height, 1, bits, 0, len(data), 2835, 2835,
                       len(palette) // 4, 0)
    offset = 14 + len(info) + len(palette)
    header = struct.pack("<2sIHHI", b"BM", offset + len(data), 0, 0, offset)
    return header + info + palette


def bmp24(width, height, pixel):
    """A 24-bit BMP of pixel(x, y) -> (r, g, b)."""
    row_bytes = (width * 3 + 3) // 4 * 4
    rows = []
    for y in reversed(range(height)):
        row = bytearray()
        for x in range(width):
            r, g, b = pixel(x, y)
            row += bytes((b, g, r))
        row += bytes(row_bytes - len(row))
        rows.append(bytes(row))
    data = b"".join(rows)
    return bmp_header(width, height, 24, data) + data


def bmp4(width, height, pixel, colours):
    """A 16-colour BMP; every pixel's colour must be one of `colours`."""
    row_bytes = (width // 2 + 3) // 4 * 4
    rows = []
    for y in reversed(range(height)):
        row = bytearray()
        for x in range(0, width, 2):
            row.append(colours.index(pixel(x, y)) << 4 | colours.index(pixel(x + 1, y)))
        row += bytes(row_bytes - len(row))
        rows.append(bytes(row))
    data = b"".join(rows)
    palette = b"".join(bytes((b, g, r, 0)) for r, g, b in colours)
    return bmp_header(width, height, 4, data, palette) + data
