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
    --output-dir | -o) COMPREPLY=($(compgen -d -- "$current")); return ;;
    --manifest | --model | --uem | --voices | --words | -m) COMPREPLY=($(compgen -f -- "$current")); compopt -o filenames; return ;;
    esac
    if [[ $current == -* ]]; then
        local options="--help --version --manifest --format --output-dir --audio --resume --speakers --min-speakers --max-speakers --threshold --sensitivity --channels --no-refine --merge-gap --min-duration --pad --speaker-prefix --names --confidence --embeddings --max-duration --via-ffmpeg --jobs --max-input --voices --model --color --quiet --verbose"
        case $command in
        score) options="--help --collar --skip-overlap --uem --each" ;;
        assign) options="--help --words --format --reach --speakers --names --model" ;;
        listen) options="--help --rate --input-channels --every --share --lines --format --output-dir --speakers --min-speakers --max-speakers --threshold --sensitivity --channels --no-refine --merge-gap --min-duration --pad --speaker-prefix --names --confidence --embeddings --max-duration --via-ffmpeg --jobs --voices --model --color" ;;
        match) options="--help --threshold" ;;
        voices add) options="--help --voices --speaker --from --to --model" ;;
        voices list) options="--help --voices" ;;
        voices remove) options="--help --voices" ;;
        voices forget) options="--help --voices --all" ;;
        esac
        COMPREPLY=($(compgen -W "$options" -- "$current"))
        return
    fi
    COMPREPLY=($(compgen -f -- "$current"))
    compopt -o filenames
    [ "$COMP_CWORD" != 1 ] || COMPREPLY+=($(compgen -W "score assign listen voices match" -- "$current"))
}
complete -F _parley parley
