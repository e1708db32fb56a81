# For pictures that gnuplot has drawn: black becomes the colour of text in the reader's colour scheme, light or dark. The
# other colours must be readable in both.
/<desc>/d
s/\(stroke\|fill\)=\(['"]\)\(black\|rgb( *0, *0, *0)\)\2/\1=\2currentColor\2/g
s|^<title>Gnuplot</title>|<style>svg { color: #222 } @media (prefers-color-scheme: dark) { svg { color: #ddd } }</style>|
s/ color=\(['"]\)black\1//g
s/ *$//
