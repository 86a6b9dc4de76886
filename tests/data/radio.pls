

[PlayList]
NumberOfEntries=4
File1=http://stream.example.net:8000/live.mp3
Title1=Example Radio (128k)
Length1=-1
File2=..\archive\show 12.mp3
Title2=AC\DC Hour
Length2=3600
file4=ignored.mp3
File3=backup.aac
File3=http://backup.example.net/live.aac
Version=2
