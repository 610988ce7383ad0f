#!/usr/bin/env python3
"""Generates the tree that bench/size.sh measures.

size_tree.py ROOT FILES [--links N] [--clones N]

Lays FILES items out as 40 folders of 10 subfolders each, with sizes from
empty to 20 kB. Every Nth item (--links) is a hard link to the item before
it, and every Nth item (--clones, offset by half a period) a copy-on-write
clone of the item before it, made with the FICLONE request; both are off
unless asked for.
"""
import argparse
import fcntl
import os

FICLONE = 0x40049409
SIZES = [0, 200, 1500, 4000, 9000, 20000]
TOP, SUB = 40, 10


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("root")
    parser.add_argument("files", type=int)
    parser.add_argument("--links", type=int, default=0)
    parser.add_argument("--clones", type=int, default=0)
    args = parser.parse_args()

    data = os.urandom(max(SIZES))
    per_folder = -(-args.files // (TOP * SUB))
    made = links = clones = 0
    previous = None
    for top in range(TOP):
        for sub in range(SUB):
            folder = os.path.join(args.root, f"d{top:02}", f"s{sub:02}")
            os.makedirs(folder, exist_ok=True)
            for index in range(per_folder):
                if made == args.files:
                    break
                path = os.path.join(folder, f"f{index:04}")
                if args.links and previous and made % args.links == 0:
                    os.link(previous, path)
                    links += 1
                elif args.clones and previous and made % args.clones == args.clones // 2 \
                        and os.path.getsize(previous) > 0:
                    with open(previous, "rb") as source, open(path, "wb") as target:
                        fcntl.ioctl(target.fileno(), FICLONE, source.fileno())
                    clones += 1
                else:
                    size = SIZES[made % len(SIZES)]
                    with open(path, "wb") as target:
                        target.write(data[:size])
                previous = path
                made += 1
    print(f"{made} files ({links} hard links, {clones} clones) below {args.root}")


if __name__ == "__main__":
    main()
