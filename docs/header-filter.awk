# Shows the headers to Doxygen as a person reads them: a comment speaks for every declaration of its paragraph,
# and what the compiler makes, and destructors, say all by their names. Lines keep their numbers.
{
    match($0, /^ */)
    indent = RLENGTH
}
!speaking && (/= (default|delete);$/ || /^ *(virtual )?~.*;$/) {
    print ""
    next
}
/^ *$/ || /^ *(public|protected|private):/ {
    speaking = 0
}
/^ *\/\/\// {
    speaking = 1
    declared = 0
    print
    next
}
speaking && !declared && !/^ *(template|\/\/)/ {
    declared = 1
    depth = indent
    ended = 0
}
speaking && declared && ended && indent == depth && !/^ *[})\/]/ {
    $0 = "/** As above. */ " $0
}
{
    ended = /[;}]( *\/\/.*)?$/
    print
}
