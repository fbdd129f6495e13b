#!/bin/sh
# What help2man reads as "planecheck --help": the command's help followed by each subcommand's,
# so the man page lists every option.
planecheck=$1
shift
if [ "$1" = --version ]; then exec "$planecheck" --version; fi
"$planecheck" --help | sed "s|$planecheck|planecheck|g"
for command in run check catalogue; do
    echo
    "$planecheck" "$command" --help | sed "s|$planecheck|planecheck|g"
done
