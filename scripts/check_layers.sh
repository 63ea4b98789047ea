#!/usr/bin/env bash
# Fails when a file includes a header of a layer above its own, or of a sibling input or action.
# The order, lowest first: platform < base < model < engine < sources, actions < service; the
# socket wrappers are part of base (base/net/).
# An input folder (sources/<name>/) may use the inputs' common files (sources/*.h) and its own
# folder; an action folder (actions/<name>/) only its own. The registry tool sits on base.
set -uo pipefail
cd "$(dirname "$0")/.."

level() {
    case $1 in
        platform) echo 0 ;; base) echo 1 ;; model) echo 3 ;; engine) echo 4 ;;
        sources | actions) echo 5 ;; service) echo 6 ;; vtreg) echo 2 ;; *) echo 99 ;;
    esac
}

# The layer a path belongs to, with the input or action folder it is in (if any).
layer_of() {  # layer_of PATH -> "LAYER FOLDER"
    local path=${1#src/}
    path=${path#tools/}
    local top=${path%%/*} rest=${path#*/} sub=""
    [[ $rest == */* ]] && sub=${rest%%/*}
    echo "$top $sub"
}

bad=0
while IFS= read -r file; do
    read -r from from_sub <<<"$(layer_of "$file")"
    while IFS= read -r inc; do
        read -r to to_sub <<<"$(layer_of "$inc")"
        reason=""
        if (($(level "$to") > $(level "$from"))); then
            reason="points up"
        elif [[ $from != "$to" ]] && (($(level "$to") == $(level "$from"))); then
            reason="points sideways"
        elif [[ $from == "$to" && ($from == sources || $from == actions) ]]; then
            if [[ -n $to_sub && $to_sub != "$from_sub" ]]; then reason="reaches another folder"; fi
            if [[ $from == actions && -z $to_sub ]]; then reason="reaches above the action folders"; fi
        fi
        if [[ -n $reason ]]; then
            echo "$file: #include \"$inc\" $reason"
            bad=$((bad + 1))
        fi
    done < <(grep -oE '^#include "[a-z_]+/[^"]+"' "$file" | sed -E 's/#include "(.*)"/\1/')
done < <(find src tools -name '*.h' -o -name '*.cpp' | sort)

if ((bad)); then
    echo "check_layers: $bad include(s) against the layer order"
    exit 1
fi
echo "check_layers: every include points down"
