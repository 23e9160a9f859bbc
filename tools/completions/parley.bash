# bash completion for parley, written by scripts/gen_options
_parley() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
    case $before in
    -f | --format)
        local done=${current%"${current##*,}"}
        COMPREPLY=($(compgen -P "$done" -W "table text rttm json jsonl csv vtt srt audacity textgrid eaf ctm uem html svg png" -- "${current##*,}"))
        compopt -o nospace
        return ;;
    --channels) COMPREPLY=($(compgen -W "mix split loudest" -- "$current")); return ;;
    --audio) COMPREPLY=($(compgen -W "auto embed link copy none" -- "$current")); return ;;
    --color) COMPREPLY=($(compgen -W "auto always never" -- "$current")); return ;;
    --via-ffmpeg) COMPREPLY=($(compgen -W "auto never always" -- "$current")); return ;;
    --again | --keep | --output-dir | -o) COMPREPLY=($(compgen -d -- "$current")); return ;;
    --manifest | --model | --output | --recording | --result | --uem | --voices | --words | -m | -o) COMPREPLY=($(compgen -f -- "$current")); compopt -o filenames; return ;;
    esac
    if [[ $current == -* ]]; then
        local options="--version --help --format --output-dir --speakers --min-speakers --max-speakers --sensitivity --names --jobs --voices --model --quiet --help-all --manifest --audio --resume --keep --again --threshold --channels --no-refine --merge-gap --min-duration --pad --speaker-prefix --confidence --embeddings --overlap --max-duration --via-ffmpeg --max-input --color --verbose"
        case $command in
        transcribe) options="--help --help-all --with --result --by-turn --time-limit --quiet --format --output --reach --by-time --speakers --names --voices --model --audio --min-speakers --max-speakers --threshold --sensitivity --channels --no-refine --merge-gap --min-duration --pad --speaker-prefix --confidence --embeddings --overlap --max-duration --via-ffmpeg --jobs" ;;
        convert) options="--help --help-all --format --output --recording --audio --without-words --model" ;;
        score) options="--help --help-all --collar --skip-overlap --uem --each" ;;
        assign) options="--help --help-all --words --recording --format --output --reach --by-time --speakers --names --voices --model --audio --min-speakers --max-speakers --threshold --sensitivity --channels --no-refine --merge-gap --min-duration --pad --speaker-prefix --confidence --embeddings --overlap --max-duration --via-ffmpeg --jobs" ;;
        listen) options="--help --help-all --device --rate --input-channels --every --share --lines --format --output-dir --speakers --names --voices --model --color --min-speakers --max-speakers --threshold --sensitivity --channels --no-refine --merge-gap --min-duration --pad --speaker-prefix --confidence --embeddings --overlap --max-duration --via-ffmpeg --jobs" ;;
        match) options="--help --help-all --threshold" ;;
        voices add) options="--help --help-all --voices --speaker --from --to --model" ;;
        voices list) options="--help --help-all --voices" ;;
        voices remove) options="--help --help-all --voices" ;;
        voices forget) options="--help --help-all --voices --all" ;;
        esac
        COMPREPLY=($(compgen -W "$options" -- "$current"))
        return
    fi
    COMPREPLY=($(compgen -f -- "$current"))
    compopt -o filenames
    [ "$COMP_CWORD" != 1 ] || COMPREPLY+=($(compgen -W "transcribe listen assign convert score voices match" -- "$current"))
}
complete -F _parley parley
