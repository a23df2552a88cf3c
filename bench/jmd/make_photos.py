#!/usr/bin/python3
"""Writes the bench's photographs as binary PPM files: the sample pictures
that python3-skimage ships, each scaled to cover WIDTHxHEIGHT and cropped
to it around its centre.

    make_photos.py OUTDIR WIDTHxHEIGHT...
"""
import os
import sys

import numpy as np
from skimage import data, io, transform

PICTURES = {
    'astronaut': data.astronaut,
    'coffee': data.coffee,
    'chelsea': data.chelsea,
    'rocket': data.rocket,
    'motorcycle': lambda: io.imread(os.path.join(data.data_dir, 'motorcycle_left.png')),
    'retina': data.retina,
    'hubble': data.hubble_deep_field,
}


def cover_and_crop(picture, width, height):
    rows, columns = picture.shape[:2]
    scale = max(width / columns, height / rows)
    scaled = transform.resize(picture, (int(np.ceil(rows * scale)), int(np.ceil(columns * scale))),
                              order=3, anti_aliasing=True, preserve_range=True)
    top = (scaled.shape[0] - height) // 2
    left = (scaled.shape[1] - width) // 2
    return np.clip(np.rint(scaled[top:top + height, left:left + width]), 0, 255).astype(np.uint8)


def main():
    outdir, sizes = sys.argv[1], sys.argv[2:]
    os.makedirs(outdir, exist_ok=True)
    for name, load in PICTURES.items():
        picture = load()[..., :3]
        for size in sizes:
            width, height = (int(n) for n in size.split('x'))
            with open(os.path.join(outdir, f'{name}_{size}.ppm'), 'wb') as out:
                out.write(b'P6\n%d %d\n255\n' % (width, height))
                out.write(cover_and_crop(picture, width, height).tobytes())


if __name__ == '__main__':
    main()
