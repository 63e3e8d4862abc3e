; The folder %ProgramData%\Vistel of a receiver that is installed for all users. Its rights let every interactive user
; write the two files that the receiver writes, and nothing else. A standard user can neither delete the folder or the
; files nor make links of them: that takes the right to delete, or to write the folder itself.
!define DATA_FOLDER_NAME "Vistel"
!define FRAME_FILE "frame-buffer.bin"
!define FRAME_FILE_BYTES 6220864
!define QUALITY_FILE "video-quality.txt"
!define FOLDER_RIGHTS "O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;AU)"
!define FILE_RIGHTS "O:BAD:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x12019f;;;IU)(A;;0x120089;;;AU)"

!define FILE_ATTRIBUTE_DIRECTORY 0x10
!define FILE_ATTRIBUTE_REPARSE_POINT 0x400
!define RIGHTS_TO_SET_RIGHTS 0xE0080 ; READ_CONTROL, WRITE_DAC, WRITE_OWNER, FILE_READ_ATTRIBUTES
!define DELETE 0x10000
!define GENERIC_WRITE 0x40000000
!define SHARE_ALL 7
!define CREATE_NEW 1
!define OPEN_EXISTING 3
!define FOLDER_ITSELF 0x02200000 ; FILE_FLAG_BACKUP_SEMANTICS, FILE_FLAG_OPEN_REPARSE_POINT
!define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000
!define FILE_DISPOSITION_INFO 4
!define ERROR_SHARING_VIOLATION 32
!define OWNER_AND_RIGHTS 0x80000005 ; with PROTECTED_DACL_SECURITY_INFORMATION
!define INHERITED_RIGHTS 0x20000004 ; the access list, with UNPROTECTED_DACL_SECURITY_INFORMATION

; Sets $R0 to SECURITY_ATTRIBUTES with these rights and $R1 to their descriptor, both 0 after an error.
!macro MakeRights text
    StrCpy $R0 0
    StrCpy $R1 0
    System::Call 'advapi32::ConvertStringSecurityDescriptorToSecurityDescriptorW(w "${text}", i 1, *p .R1, p 0) i'
    StrCmp $R1 0 +2
    System::Call '*(i 24, i 0, p R1, p 0) p .R0'
!macroend
!macro FreeRights
    System::Free $R0
    System::Call 'kernel32::LocalFree(p R1)'
!macroend

; Ends the installation because of the file $R5.
Function RefuseFileInUse
    StrCpy $4 "The file $R5 is in use. Close receivers and camera applications of all users and try again."
    Call Refuse
FunctionEnd

; Deletes and creates the file $R5: a link that another user has put there is not followed. $R6 is its handle, or -1.
Function CreateSharedFile
    Delete $R5
    !insertmacro MakeRights "${FILE_RIGHTS}"
    StrCpy $R6 -1
    StrCmp $R0 0 +2 ; never with other rights
    System::Call 'kernel32::CreateFileW(w R5, i ${GENERIC_WRITE}, i 0, p R0, i ${CREATE_NEW}, i 0, p 0) p .R6'
    !insertmacro FreeRights
FunctionEnd

; Refuses the installation if CreateSharedFile could not delete the file $R5 because it is in use. Nothing is changed,
; and a link is not followed.
Function CheckSharedFile
    System::Call 'kernel32::CreateFileW(w R5, i ${DELETE}, i ${SHARE_ALL}, p 0, i ${OPEN_EXISTING}, \
        i ${FILE_FLAG_OPEN_REPARSE_POINT}, p 0) p .R6 ?e'
    Pop $R7
    StrCmp $R6 -1 closed
    ; Windows refuses to delete a file that a program has mapped. With the second call the file stays.
    System::Call 'kernel32::SetFileInformationByHandle(p R6, i ${FILE_DISPOSITION_INFO}, *i 1, i 1) i .R7'
    System::Call 'kernel32::SetFileInformationByHandle(p R6, i ${FILE_DISPOSITION_INFO}, *i 0, i 1)'
    System::Call 'kernel32::CloseHandle(p R6)'
    StrCmp $R7 0 inUse done
  closed:
    StrCmp $R7 ${ERROR_SHARING_VIOLATION} 0 done ; The folder's rights may change other errors.
  inUse:
    Call RefuseFileInUse
  done:
FunctionEnd

Function PrepareDataFolder
    SetShellVarContext all
    StrCpy $R2 "$APPDATA\${DATA_FOLDER_NAME}"
    StrCpy $R5 "$R2\${QUALITY_FILE}"
    Call CheckSharedFile
    StrCpy $R5 "$R2\${FRAME_FILE}"
    Call CheckSharedFile

    ; A link in its place is removed, not followed.
    System::Call 'kernel32::GetFileAttributesW(w R2) i .R3'
    IntCmp $R3 -1 create
    IntOp $R3 $R3 & ${FILE_ATTRIBUTE_REPARSE_POINT}
    IntCmp $R3 0 create
    System::Call 'kernel32::RemoveDirectoryW(w R2)'
  create:
    !insertmacro MakeRights "${FOLDER_RIGHTS}"
    StrCmp $R0 0 failed
    System::Call 'kernel32::CreateDirectoryW(w R2, p R0)'
    ; An existing folder gets the rights, through a handle that cannot be led elsewhere in the meantime.
    System::Call 'kernel32::CreateFileW(w R2, i ${RIGHTS_TO_SET_RIGHTS}, i ${SHARE_ALL}, p 0, i ${OPEN_EXISTING}, \
        i ${FOLDER_ITSELF}, p 0) p .R4'
    StrCmp $R4 -1 failed
    System::Alloc 52
    Pop $R6
    StrCpy $R3 0
    System::Call 'kernel32::GetFileInformationByHandle(p R4, p R6) i .R7'
    StrCmp $R7 0 +2
    System::Call '*$R6(i .R3)'
    System::Free $R6
    IntOp $R3 $R3 & 0x410 ; FILE_ATTRIBUTE_DIRECTORY and FILE_ATTRIBUTE_REPARSE_POINT
    StrCpy $R7 0
    IntCmp $R3 ${FILE_ATTRIBUTE_DIRECTORY} 0 close close
    System::Call 'advapi32::SetKernelObjectSecurity(p R4, i ${OWNER_AND_RIGHTS}, p R1) i .R7'
  close:
    System::Call 'kernel32::CloseHandle(p R4)'
    !insertmacro FreeRights
    StrCmp $R7 0 failed

    ; What the receiver wrote last stays; it knows two texts.
    StrCpy $R8 "720p"
    ClearErrors
    FileOpen $R9 "$R2\${QUALITY_FILE}" r
    IfErrors write
    FileRead $R9 $R7
    FileClose $R9
    StrCmp $R7 "1080p" 0 write
    StrCpy $R8 "1080p"
  write:
    StrCpy $R5 "$R2\${QUALITY_FILE}"
    Call CreateSharedFile
    StrCmp $R6 -1 inUse
    FileWrite $R6 $R8
    FileClose $R6
    StrCpy $R5 "$R2\${FRAME_FILE}"
    Call CreateSharedFile
    StrCmp $R6 -1 inUse
    System::Call 'kernel32::SetFilePointer(p R6, i ${FRAME_FILE_BYTES}, p 0, i 0)'
    System::Call 'kernel32::SetEndOfFile(p R6)'
    System::Call 'kernel32::CloseHandle(p R6)'
    Return
  inUse:
    Call RefuseFileInUse
  failed:
    StrCpy $4 "The folder $R2 could not be created with its rights."
    Call Refuse
FunctionEnd

; Removes the receiver's files. When files of others are there, the folder stays, for all users with the rights that
; the folder above gives.
Function un.RemoveDataFolder
    SetShellVarContext all
    StrCpy $R2 "$APPDATA\${DATA_FOLDER_NAME}"
    Delete "$R2\${FRAME_FILE}"
    Delete "$R2\${QUALITY_FILE}"
    ClearErrors
    RMDir "$R2"
    IfErrors 0 removed
    StrCmp $AllUsers 1 0 removed
    System::Alloc 8 ; an access list without entries
    Pop $R3
    System::Call 'advapi32::InitializeAcl(p R3, i 8, i 2)'
    System::Call 'advapi32::SetNamedSecurityInfoW(w R2, i 1, i ${INHERITED_RIGHTS}, p 0, p 0, p R3, p 0)'
    System::Free $R3
  removed:
FunctionEnd
