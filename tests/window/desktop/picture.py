"""Screenshots."""

import os
import struct
import zlib


class Picture:
    """RGB pixels with 8 bits per channel, row by row."""

    def __init__(self, width, height, rgb):
        self.width = width
        self.height = height
        self.rgb = rgb

    @staticmethod
    def of(drawable, x, y, width, height, kind, planes):
        """Reads a part of an X drawable of depth 24."""
        data = drawable.get_image(x, y, width, height, kind, planes).data
        rgb = bytearray(3 * width * height)
        for colour in range(3):
            rgb[colour::3] = data[2 - colour :: 4]
        return Picture(width, height, bytes(rgb))

    def pixel(self, x, y):
        """(red, green, blue) at a position in the picture."""
        start = 3 * (y * self.width + x)
        return tuple(self.rgb[start : start + 3])

    def colours(self):
        """How often each colour occurs."""
        count = {}
        for start in range(0, len(self.rgb), 3):
            colour = tuple(self.rgb[start : start + 3])
            count[colour] = count.get(colour, 0) + 1
        return count

    def save(self, path):
        """Writes a PNG."""

        def chunk(kind, content):
            check = zlib.crc32(kind + content)
            return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", check)

        length = 3 * self.width
        rows = b"".join(
            b"\0" + self.rgb[row * length : (row + 1) * length] for row in range(self.height)
        )
        os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n")
            file.write(
                chunk(b"IHDR", struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0))
            )
            file.write(chunk(b"IDAT", zlib.compress(rows)))
            file.write(chunk(b"IEND", b""))
