# bash completion for pagewright and pagewright-batch: commands, their options, the values of
# the options that take a fixed set, and file names everywhere else. Installed under both
# names, so that bash-completion loads it for whichever is typed first.

_pagewright_batch_options()
{
    local recompression='--color --gray --bw'
    local page='--page-size --fit --margin --orientation --dpi --force-dpi --max-pixels'
    local pdf='--password'
    case $1 in
    convert) echo "$recompression --replace --ocr --jobs $page -o" ;;
    merge) echo "--ocr $page -o" ;;
    tiff-delete) echo '--page' ;;
    clone) echo "--replace $recompression --ocr --new --jobs $page" ;;
    resume) echo "--jobs $page" ;;
    render) echo "--resolution --format --range $pdf -o" ;;
    split) echo "--prefix $pdf -o" ;;
    extract) echo "--range --prefix $pdf -o" ;;
    join) echo "$pdf -o" ;;
    tiff-join) echo '-o' ;;
    info) echo "--title --subject --author --keywords $pdf" ;;
    rotate) echo "--angle --range $pdf" ;;
    ocr) echo "--language $pdf" ;;
    tiff-split) echo '--page --prefix -o' ;;
    tiff-extract) echo '--first --last -o' ;;
    tiff-append) echo '--at' ;;
    image-to-tiff) echo '--compression -o' ;;
    rename-by-pages)
        echo '--mask --prefix --suffix --position --before --after --separator --dry-run'
        ;;
    esac
}

_pagewright_batch()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local commands='convert merge pages clone resume render split extract join info rotate ocr
        tiff-join tiff-split tiff-extract tiff-delete tiff-append image-to-tiff rename-by-pages'
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$cur")
        return
    fi
    # The options that take one of a fixed set of values.
    local values=''
    case $prev in
    --color | --gray) values='Lzw Zip Packbits Jpeg' ;;
    --bw) values='Lzw Zip CCITT-G3 CCITT-G4' ;;
    --format) values='png jpeg tiff tiff-pages' ;;
    --page-size) values='A4 Letter Legal A3 A5' ;;
    --fit) values='into fill exact shrink' ;;
    --orientation) values='auto portrait landscape' ;;
    --angle) values='90 180 270' ;;
    --compression) values='auto none g4 lzw jpeg deflate' ;;
    esac
    if [[ -n $values ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$cur")
        return
    fi
    case $prev in
    --ocr)
        # The installed languages, less the script-detection data that is no language.
        local data
        data=$(find /usr/share/tesseract-ocr -name '*.traineddata' -printf '%f
' 2>/dev/null)
        data=${data//.traineddata/}
        mapfile -t COMPREPLY < <(compgen -W "${data//osd/}" -- "$cur")
        return
        ;;
    -o)
        # A folder for most commands, a file name or - (standard output) for merge and the joins.
        case ${COMP_WORDS[1]} in
        merge | join | tiff-join)
            mapfile -t COMPREPLY < <(compgen -W '-' -- "$cur"; compgen -f -- "$cur")
            ;;
        *) mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
        esac
        return
        ;;
    --resolution | --range | --prefix | --title | --subject | --author | --keywords | --page | \
        --first | --last | --at | --mask | --position | --separator | --margin | --dpi | \
        --force-dpi | --jobs | --max-pixels | --password)
        return
        ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_pagewright_batch_options "${COMP_WORDS[1]}") --quiet --verbose --help" -- "$cur")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}

_pagewright()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--help --version' -- "$cur")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}

# -o filenames: bash quotes the names and adds a slash to folders.
complete -o filenames -F _pagewright_batch pagewright-batch
complete -o filenames -F _pagewright pagewright
