# Writes the marlowick(1) manual page from the tool's own help, so the page says what the installed tool
# does: the overview from `marlowick --help`, then one section per command from `marlowick help COMMAND`.
# Run as `cmake -DMARLOWICK=<tool> -DOUTPUT=<page> -P MarlowickManPage.cmake`.

function(run_tool out)
    execute_process(COMMAND ${MARLOWICK} ${ARGN} OUTPUT_VARIABLE text RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "'marlowick ${ARGN}' failed (${status})")
    endif()
    set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Help text as literal roff lines: backslashes and hyphens escaped, and a line that starts with a period
# or an apostrophe guarded, since roff would read it as a request.
function(as_roff out text)
    string(REPLACE "\\" "\\e" text "${text}")
    string(REPLACE "-" "\\-" text "${text}")
    string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
    string(REGEX REPLACE "\n+$" "" text "${text}")
    set(${out} "${text}" PARENT_SCOPE)
endfunction()

run_tool(usage --help)
run_tool(version --version)
string(REGEX MATCH "[0-9][0-9.]*" version "${version}")

# The command names: the first word of each line indented by two spaces under "Commands:".
string(REGEX MATCH "Commands:\n.*" listing "${usage}")
string(REGEX MATCHALL "\n  [a-z]+" names "${listing}")
set(commands)
foreach(name IN LISTS names)
    string(STRIP "${name}" name)
    list(APPEND commands ${name})
endforeach()
if(NOT commands)
    message(FATAL_ERROR "no commands found in 'marlowick --help'")
endif()

as_roff(overview "${usage}")
set(page ".TH MARLOWICK 1 \"\" \"marlowick ${version}\" \"User Commands\"
.SH NAME
marlowick \\- work on Marlowick project packages from the command line
.SH SYNOPSIS
.B marlowick
.I COMMAND
.RI [ ARGUMENTS ]
.SH DESCRIPTION
.nf
${overview}
.fi
.SH COMMANDS
")
foreach(command IN LISTS commands)
    run_tool(help help ${command})
    as_roff(help "${help}")
    string(APPEND page ".SS ${command}\n.nf\n${help}\n.fi\n")
endforeach()
string(APPEND page ".SH SEE ALSO
.BR marlowick-studio (1)
")
file(WRITE ${OUTPUT} "${page}")
