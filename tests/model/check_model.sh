#!/bin/bash
# Has Spin search a model: check_model.sh holds|fails MODEL [-DNAME...]
# "holds" passes when no order of events breaks an assertion and, without a NAME, every step of the model is taken in
# some of them. "fails" passes when an assertion is broken, and prints a shortest way to that.
set -euo pipefail
wanted=$1
model=$(readlink -f "$2")
defines=("${@:3}")

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
# Compiling takes longer than finding a mistake, and about as long as searching a variant.
if [[ $wanted == fails ]]; then
    options=(-O0 -DBFS)
else
    options=(-O1 -DCOLLAPSE) # depth first, which needs the least memory
    ((${#defines[@]} > 0)) || options=(-O2) # 1.7 GB instead of 0.7, and a quarter less time
fi
spin -a "${defines[@]}" "$model"
gcc "${options[@]}" -w -DSAFETY -DMEMLIM=1900 -o search pan.c
./search -m100000 -w24 >report || true # the report shows why
grep -E 'states, stored|total actual memory|elapsed time' report

if [[ $wanted == fails ]] && grep -q 'assertion violated' report; then
    spin -t -k ./*.trail "${defines[@]}" "$model" | sed '/^spin: trail ends/,$d'
elif [[ $wanted == holds ]] && grep -q 'errors: 0$' report && ! grep -qE 'not completed|depth too small' report &&
    { ((${#defines[@]} > 0)) || ! grep -E ', state [0-9]+, ' report | grep -vq '"-end-"'; }; then
    echo "It holds in every order of events."
else
    cat report
    ! compgen -G '*.trail' >/dev/null || spin -t -k ./*.trail "${defines[@]}" "$model"
    exit 1
fi
