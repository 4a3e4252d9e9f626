-- expect: ok nil
return (load(string.rep("local a ", 1000)))
