#!/bin/bash -eu
# Builds every fuzz target, with the flags that ClusterFuzzLite gives, and packs the corpus of each.
scripts/lib/lzfse
cmake -G Ninja -S . -B build/fuzz -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -DTIDEWRACK_FUZZ=ON \
    -DTIDEWRACK_FUZZ_ENGINE="$LIB_FUZZING_ENGINE"
cmake --build build/fuzz --target fuzz_targets
for program in build/fuzz/fuzz_*; do
    [ -x "$program" ] && [ -f "$program" ] || continue
    cp "$program" "$OUT/"
    target=${program##*/fuzz_}
    corpus=Tests/Fuzz/Corpus/${target%_*}
    (cd "$corpus" && zip -q "$OUT/fuzz_${target}_seed_corpus.zip" -- *)
done
