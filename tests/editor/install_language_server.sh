#!/bin/sh
# Installs the npm package yaml-language-server into DIR; when npm or its registry fails, says so
# and leaves no stamp, so that the next build tries again and the test is skipped meanwhile.
# usage: install_language_server.sh NPM DIR VERSION
npm=$1 dir=$2 version=$3
mkdir -p "$dir"
if "$npm" install --prefix "$dir" --no-audit --no-fund --fetch-retries 1 --fetch-timeout 30000 \
     "yaml-language-server@$version" >"$dir/npm.log" 2>&1; then
  touch "$dir/installed-$version"
else
  echo "yaml-language-server $version was not installed (npm's output is in $dir/npm.log);" \
       "the language-server test will be skipped"
fi
