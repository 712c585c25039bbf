#!/usr/bin/env python3
"""Executed guest instructions per function, from a qemu-user log taken with
`-d in_asm,exec,nochain` (read from stdin or the file given).

in_asm prints every translated block once: its address and one line per
guest instruction.  exec with nochain prints one "Trace" line per executed
block, with the block's guest address and the function it lies in.  Each
executed block adds its instruction count to its function.

Output: "TOTAL <n>" then "<n> <function>" per function, most first.
"""
import collections
import re
import sys

insn_re = re.compile(r'^0x([0-9a-f]+):')


def main():
    src = open(sys.argv[1], errors='replace') if len(sys.argv) > 1 else sys.stdin
    size = {}  # block address -> instructions, from its latest translation
    per_func = collections.Counter()
    block, count = None, 0
    for line in src:
        if line.startswith('Trace '):
            # Trace <cpu>: <host block> [<flags>/<pc>/<flags>/<flags>] <function>
            fields = line.split('/', 2)
            if len(fields) == 3:
                tail = line.split('] ', 1)
                name = tail[1].strip() if len(tail) == 2 else ''
                per_func[name or '?'] += size.get(int(fields[1], 16), 0)
            continue
        m = insn_re.match(line)
        if m:
            if block is None:
                block, count = int(m.group(1), 16), 0
            count += 1
        elif block is not None:  # the blank line that ends a block's listing
            size[block] = count
            block = None
    if block is not None:
        size[block] = count
    print('TOTAL', sum(per_func.values()))
    for name, n in per_func.most_common():
        print(n, name)


if __name__ == '__main__':
    main()
