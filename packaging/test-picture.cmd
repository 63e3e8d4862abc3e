@echo off
rem Shows the test picture in the receiver, and so in the virtual camera. The names of the folders must not contain
rem # or %%: they have other meanings in an address.
cd /d "%~dp0"
start vistel-receiver.exe --url="file:///%~dp0test-picture.html"
