let a=1
