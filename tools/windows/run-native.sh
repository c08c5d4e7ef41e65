#!/bin/bash
# Runs a program of the machine under Wine for a test of the Windows build, which cannot wait for it:
#
#     run-native.sh FOLDER PROGRAM [ARGUMENT...]
#
# Standard input is FOLDER/in, output goes to FOLDER/out and FOLDER/err; FOLDER/status holds the exit status once the
# program has ended. Arguments that are paths of Windows become those of the machine. The program is the system's own:
# what a user has put before it may start several more, which adds up over a thousand tests.
PATH=/usr/bin:/bin:$PATH
words=()
for word in "$@"; do
  case $word in
    [A-Za-z]:[\\/]*)
      drive=${word:0:1}
      word=$WINEPREFIX/dosdevices/${drive,}:/${word:3}
      word=${word//\\//}
      ;;
  esac
  words+=("$word")
done

folder=${words[0]}
"${words[@]:1}" <"$folder/in" >"$folder/out" 2>"$folder/err"
echo $? >"$folder/status.part"
mv "$folder/status.part" "$folder/status"
