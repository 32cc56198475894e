# Shows the headers to Doxygen as a person reads them: a comment applies to every declaration of its paragraph, and
# destructors and what the compiler makes need none. Lines keep their numbers.
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
