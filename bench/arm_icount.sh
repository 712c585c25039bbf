#!/usr/bin/env bash
# Executed guest instructions of whole merges under qemu-user, per merged
# pixel and per kernel, on armv7 and AArch64:
#
#   bench/arm_icount.sh [WIDTH HEIGHT]        (default 512 768)
#
# Builds (in build/icount-*, bench driver only, Release):
#   armv7         the shipping armv7 build: baseline armv7-a + VFPv3-D16, NEON
#                 kernels in their own object library
#   armv7-neonref everything compiled with -mfpu=neon, so the compiler may
#                 vectorise the reference kernels
#   aarch64       the AArch64 build (NEON is baseline there)
# Runs, each one merge of a synthetic bracket (bench/merge_driver.cpp):
#   armv7 neon      hand NEON kernels          (armv7 build, selected table)
#   armv7 ref       references, no NEON        (armv7 build, reference table)
#   armv7 ref+vec   references, vectorised     (armv7-neonref build, reference table)
#   aarch64 neon / aarch64 ref (vectorised: NEON is always allowed there)
# One merge = the count of a 1-merge run minus that of a 0-merge run (the
# bracket is built and copied in both).  Counting: `qemu -d in_asm,exec,nochain`
# logs every translated block and every executed block; bench/icount.py sums
# the instructions of the executed blocks per function.  The emulated core is
# cortex-a7 (armv7, in-order, what low-end phones run) and qemu's default
# AArch64 core; the counts do not depend on the core model, only on the code.
#
# REUSE=1 skips the runs whose counts exist and only redoes the report.
# Output: the per-pixel table and the per-kernel table (reference vs NEON,
# paired by kernel-table slot), also kept in build/icount-report.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
W=${1:-512}
H=${2:-768}
jobs=${JOBS:-2}
out=build/icount
mkdir -p "$out"

build() { # dir, extra cmake args...
  local dir=build/icount-$1; shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARO_HDR_TESTS=OFF -DVARO_HDR_TOOLS=OFF \
        -DVARO_HDR_BENCH=ON "$@" > "$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; exit 1; }
  ninja -C "$dir" -j "$jobs" varo_merge_driver > "$dir.build.log" 2>&1 || { tail -30 "$dir.build.log"; exit 1; }
}
build armv7 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armv7-linux-gnueabihf.cmake
build armv7-neonref -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armv7-linux-gnueabihf.cmake \
  "-DCMAKE_C_FLAGS=-march=armv7-a -mfloat-abi=hard -mfpu=neon" \
  "-DCMAKE_CXX_FLAGS=-march=armv7-a -mfloat-abi=hard -mfpu=neon"
build aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake

qemu_for() { case $1 in armv7*) echo "qemu-arm -cpu cortex-a7";; aarch64) echo "qemu-aarch64";; esac; }

# The bracket generator (tests/unit/synthetic.cpp, contiguous in the static
# binary) is left out of the log: it is the same in both runs and would
# dominate the log's size.
skip_synthetic() { # build -> a -dfilter that covers everything else
  local nm=arm-linux-gnueabihf-nm top=0xffffffff
  [ "$1" = aarch64 ] && nm=aarch64-linux-gnu-nm top=0xffffffffffffffff
  $nm -n "build/icount-$1/bench/varo_merge_driver" | python3 -c '
import re, sys
syms = [(int(a, 16), n) for a, _, n in (l.split() for l in sys.stdin if len(l.split()) == 3)]
gen = re.compile(r"_ZN12_GLOBAL__N_1\d+(noise|hash3|isqrt64|radiance|expose)|_ZN11TestBracket5inputEv|_Z12make_bracket|_Z14textured_frame")
hit = [i for i, (a, n) in enumerate(syms) if gen.match(n)]
lo, last = syms[hit[0]][0], syms[hit[-1]][0]
hi = next(a for a, n in syms[hit[-1]:] if a > last)
print("0x0..0x%x,0x%x..%s" % (lo - 1, hi, sys.argv[1]))' $top
}

count() { # name, build, table (sel|ref), merges -> $out/name.mN.txt
  local bin=build/icount-$2/bench/varo_merge_driver table=$3
  [ "$table" = sel ] && table=""
  # qemu logs to stderr when no -D is given: streamed, never stored.
  $(qemu_for "$2") -d in_asm,exec,nochain -dfilter "$(skip_synthetic "$2")" "$bin" "$W" "$H" "$4" $table \
    2>&1 >/dev/null | python3 bench/icount.py > "$out/$1.m$4.txt"
}

runs=("armv7-neon armv7 sel" "armv7-ref armv7 ref" "armv7-refvec armv7-neonref ref"
      "aarch64-neon aarch64 sel" "aarch64-ref aarch64 ref")
for r in "${runs[@]}"; do
  set -- $r
  # REUSE=1 only redoes the report from the counts of the last run.
  [ "${REUSE:-0}" = 1 ] && [ -s "$out/$1.m1.txt" ] && continue
  count "$1" "$2" "$3" 0
  count "$1" "$2" "$3" 1
  echo "counted $1" >&2
done

# Kernel slots: reference and selected function of every slot, by symbol.
for b in armv7 armv7-neonref aarch64; do
  bin=build/icount-$b/bench/varo_merge_driver
  nm=$([ "${b%%-*}" = aarch64 ] && echo aarch64-linux-gnu-nm || echo arm-linux-gnueabihf-nm)
  $(qemu_for $b) "$bin" slots > "$out/$b.slots"
  $nm "$bin" | awk '$2 ~ /^[tTwW]$/ {print $1, $3}' > "$out/$b.syms"
done

python3 - "$out" "$W" "$H" <<'EOF' | tee build/icount-report.txt
import subprocess, sys
out, w, h = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
pixels = w * h

def counts(name, merges):
    c = {}
    for line in open(f'{out}/{name}.m{merges}.txt'):
        n, f = line.rstrip('\n').split(' ', 1)
        if n != 'TOTAL':
            c[f] = int(n)
    return c

def merge(name):  # one merge: 1-merge run minus 0-merge run, per function
    a, b = counts(name, 1), counts(name, 0)
    return {f: a[f] - b.get(f, 0) for f in a if a[f] - b.get(f, 0) > 0}

runs = {n: merge(n) for n in ['armv7-neon', 'armv7-ref', 'armv7-refvec', 'aarch64-neon', 'aarch64-ref']}
print(f'Executed instructions of one merge at {w}x{h} ({pixels} pixels):')
for n, c in runs.items():
    print(f'  {n:14s} {sum(c.values()):12d}  {sum(c.values()) / pixels:7.1f} per pixel')
print(f'  armv7 ref+vec / neon: {sum(runs["armv7-refvec"].values()) / sum(runs["armv7-neon"].values()):.2f}x'
      f'   aarch64 ref / neon: {sum(runs["aarch64-ref"].values()) / sum(runs["aarch64-neon"].values()):.2f}x')

def slots(build):
    syms = {}
    for line in open(f'{out}/{build}.syms'):
        f = line.split()
        if len(f) == 2:
            syms.setdefault(int(f[0], 16) & ~1, f[1])
    res = []
    for line in open(f'{out}/{build}.slots'):
        i, r, s = line.split()
        res.append((int(i), syms.get(int(r, 16) & ~1, r), syms.get(int(s, 16) & ~1, s)))
    return res

def demangle(names):
    p = subprocess.run(['c++filt'], input='\n'.join(names), capture_output=True, text=True)
    names = [x.replace('(anonymous namespace)::', '') for x in p.stdout.split('\n')]
    return [x[5:] if x.startswith('void ') else x for x in (n.split('(')[0] for n in names)]

for arch, neon, ref, refb in [('armv7', 'armv7-neon', 'armv7-refvec', 'armv7-neonref'),
                              ('aarch64', 'aarch64-neon', 'aarch64-ref', 'aarch64')]:
    s_sel, s_ref = slots(arch), slots(refb)
    print(f'\n{arch}: instructions per merge by kernel slot (reference vectorised by the compiler vs NEON)')
    print(f'  {"slot":>4} {"reference":28s} {"instr":>11} {"NEON":28s} {"instr":>11} {"ref/NEON":>8} {"share":>6}')
    total = sum(runs[neon].values())
    rows = []
    for (i, _, sel), (_, rname, _) in zip(s_sel, s_ref):
        nr, ns = runs[ref].get(rname, 0), runs[neon].get(sel, 0)
        if (nr or ns) and all((rname, sel) != (r[1], r[3]) for r in rows):  # one row per function pair
            rows.append((i, rname, nr, sel, ns))
    dn = demangle([r[1] for r in rows] + [r[3] for r in rows])
    for k, (i, rname, nr, sel, ns) in enumerate(rows):
        same = ' (no NEON)' if sel == s_sel[i][1] else ''
        print(f'  {i:4d} {dn[k][:28]:28s} {nr:11d} {dn[len(rows) + k][:28]:28s} {ns:11d} '
              f'{nr / ns if ns else 0:8.2f} {100 * ns / total:5.1f}%{same}')
    kern = {r[3] for r in rows}
    rest = sorted(((n, f) for f, n in runs[neon].items() if f not in kern), reverse=True)[:12]
    print(f'  outside the kernel tables (NEON run), largest:')
    for n, f in rest:
        print(f'       {demangle([f])[0][:50]:50s} {n:11d} {100 * n / total:5.1f}%')
EOF
