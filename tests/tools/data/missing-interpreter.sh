#!/nonexistent/velcan-interpreter
echo never
