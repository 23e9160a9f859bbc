# fish completion for parley
complete -c parley -n __fish_use_subcommand -a score -d 'Error rates against a reference'
complete -c parley -n __fish_use_subcommand -a assign -d 'Speakers for a transcript'
complete -c parley -n __fish_use_subcommand -a match -d 'The same voices in two recordings'
set -l diarizing 'not __fish_seen_subcommand_from score assign match'
complete -c parley -n $diarizing -s f -l format -x -d 'How to write the answer' \
    -a '(__fish_append , table text rttm json csv vtt srt audacity textgrid eaf ctm uem html svg png)'
complete -c parley -n $diarizing -s o -l output-dir -x -a '(__fish_complete_directories)' -d 'A file per recording, there'
complete -c parley -n $diarizing -s j -l jobs -x -d 'Recordings at a time'
complete -c parley -n $diarizing -l resume -d 'Leave out what is there'
complete -c parley -n $diarizing -l manifest -r -d 'A list of recordings'
complete -c parley -n $diarizing -s n -l speakers -x -d 'Exactly that many speakers'
complete -c parley -n $diarizing -l min-speakers -x
complete -c parley -n $diarizing -l max-speakers -x
complete -c parley -n $diarizing -l threshold -x -d 'offline,prune,segment,background'
complete -c parley -n $diarizing -l channels -x -a 'mix split'
complete -c parley -n $diarizing -l merge-gap -x -d 'Seconds'
complete -c parley -n $diarizing -l min-duration -x -d 'Seconds'
complete -c parley -n $diarizing -l pad -x -d 'Seconds'
complete -c parley -n $diarizing -l speaker-prefix -x
complete -c parley -n $diarizing -l names -x
complete -c parley -n $diarizing -l confidence -d 'How sure each segment is'
complete -c parley -n $diarizing -l embeddings -d "Speakers' vectors in JSON"
complete -c parley -n $diarizing -s m -l model -r -d 'The model'
complete -c parley -n $diarizing -l color -x -a 'auto always never'
complete -c parley -n $diarizing -s q -l quiet -d 'No progress'
complete -c parley -n $diarizing -s v -l verbose -d "The engine's log"
complete -c parley -s h -l help
complete -c parley -l version
complete -c parley -n '__fish_seen_subcommand_from score' -l collar -x -d Seconds
complete -c parley -n '__fish_seen_subcommand_from score' -l skip-overlap
complete -c parley -n '__fish_seen_subcommand_from score' -l uem -r
complete -c parley -n '__fish_seen_subcommand_from score' -l each
complete -c parley -n '__fish_seen_subcommand_from assign' -l words -r -d 'The transcript'
complete -c parley -n '__fish_seen_subcommand_from assign' -l reach -x -d Seconds
complete -c parley -n '__fish_seen_subcommand_from match' -l threshold -x -d Cosine
