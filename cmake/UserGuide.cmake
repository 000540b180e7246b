# cmake -DCMARK=... -DIN=guide.md -DOUT=guide.html -P UserGuide.cmake
# The user guide as one HTML page: cmark's body in a page of our own. The guide is our
# text, so its few raw anchors (<a id=...>) are let through.
execute_process(COMMAND ${CMARK} --unsafe --smart ${IN} OUTPUT_VARIABLE body RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmark failed on ${IN}")
endif()
set(page "<!DOCTYPE html>
<html lang=\"en\">
<head>
<meta charset=\"utf-8\">
<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">
<title>Kestrova user guide</title>
<style>
  :root { color-scheme: light dark; }
  body { font-family: system-ui, sans-serif; max-width: 50em; margin: 2em auto; padding: 0 1em; line-height: 1.5; }
  table { border-collapse: collapse; }
  th, td { border: 1px solid #8888; padding: 0.25em 0.6em; text-align: left; vertical-align: top; }
  code, pre { font-family: ui-monospace, monospace; }
  pre { padding: 0.6em; border: 1px solid #8888; overflow-x: auto; }
</style>
</head>
<body>
${body}</body>
</html>
")
file(WRITE ${OUT}.tmp "${page}")
file(RENAME ${OUT}.tmp ${OUT})
