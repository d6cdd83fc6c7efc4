"""Calls every method of the development service through its WSDLs with an ordinary SOAP client.

usage: soap_client.py ADDRESS
"""

import base64
import sys
import urllib.request
import zlib

import zeep

NAME, PASSWORD = "zeep & co", "p<w>\"'é"
USER = {"userName": NAME, "password": PASSWORD}
called = set()


def expect(condition, what):
    if not condition:
        sys.exit(f"not as expected: {what}")


class Service:
    """A service whose calls are noted."""

    def __init__(self, address, name):
        self.client = zeep.Client(f"{address}/{name}.asmx?wsdl")

    def methods(self):
        (service,) = self.client.wsdl.services.values()
        (port,) = service.ports.values()
        return set(port.binding._operations)

    def __getattr__(self, method):
        called.add(method)
        return getattr(self.client.service, method)


def fault_of(call, **parameters):
    try:
        call(**parameters)
    except zeep.exceptions.Fault as fault:
        return fault.message
    return sys.exit("a fault was expected")


def check_accounts(account):
    opened = account.CreateAccount(firstName="Zoë", emailID="z@example.com", **USER)
    expect(opened == "Success", f"CreateAccount gave {opened}")
    expect(account.CreateAccount(firstName="", userName=NAME, password="x",
                                 emailID="z@example.com") == "UserNameAlreadyExists",
           "a taken name must be refused")
    signed_in = account.Authenticate(**USER)
    expect(signed_in.AuthenticateResult == "true", f"Authenticate gave {signed_in}")
    expect(signed_in.accountStatus == "Active", f"Authenticate gave {signed_in}")
    expect(signed_in.message is None, "an explicit nil must arrive as nothing")
    expect(account.Authenticate(userName=NAME, password="no").AuthenticateResult == "false",
           "a wrong password must be refused")
    trial = account.CreateTrialAccount(userName="trial", password="p", email="nowhere")
    expect(trial.Code == "InvalidEmailAddress" and trial.Message, f"CreateTrialAccount gave {trial}")
    box = account.EncryptString(sourceString="häuser")
    expect(box != "häuser", "the text must be encrypted")
    expect(account.DecryptString(sourceString=box) == "häuser", "the text must come back")
    expect("was not encrypted by this service" in
           fault_of(account.DecryptString, sourceString="00"), "a text of somebody else")
    expect(account.GetAccountUsedSpace(**USER) == "0", "an empty account")
    info = account.GetAccountInfo(osBits="x64", systemName="iMac", **USER)
    expect(info.AccountStatus == "Active" and info.Email == "z@example.com", f"{info}")


def send_part(address, path, guid, content):
    """What a client does by plain HTTP."""
    def encoded(text):
        return base64.b64encode(text.encode()).decode()
    request = urllib.request.Request(f"{address}/UploadFilePart", data=content, headers={
        "X-FileName": encoded("/home/zoë/a.txt"), "X-Guid": guid, "X-UserName": encoded(NAME),
        "X-ServerDirPath": encoded(path), "X-PortionSize": str(len(content)),
        "Content-Length": f"{len(content)}u"})
    with urllib.request.urlopen(request) as answer:
        expect(answer.headers["Status"] == "true", f"a part was refused: {answer.headers}")
        expect(answer.headers["X-ReceivedBytes"] == str(len(content)), "the bytes received")


def protect2(backup, path, guid, content, **more):
    return backup.protect2(**USER, actualFileName="a.txt", actualFilePath="/home/zoë",
                           actualFileSize=len(content), encryptedFileName=guid,
                           encryptedFilePath=path, encryptedFileSize=len(content),
                           clientDate="2026-01-01 00:00:00", systemName="iMac", cacheFileSize=0,
                           iIsCompressed=0, lngFileSizeInBytesFromClient=len(content),
                           **{"isDelta": 0, "lngBaselinePkForThisDelta": -1,
                              "uniqueKey": f"{guid};crc32={zlib.crc32(content):08x}", **more})


def check_backup(address, backup):
    path = backup.GetPhyPath(userName=NAME, strRegistryId="R")
    expect(path.startswith("/"), f"GetPhyPath gave {path}")
    expect(not backup.GetPhyPath(userName="nobody", strRegistryId="R"), "a path for nobody")
    expect(len(backup.getenckey(**USER)) == 64, "getenckey")
    expect(backup.PreparePackagedFilesForProtection(packagePath="/home/P.app", packageByteCount=1,
                                                    **USER) == "Success", "a package")
    send_part(address, path, "G1", b"one")
    expect(protect2(backup, path, "G1", b"one1") == "IncompleteFile", "an incomplete file")
    expect(protect2(backup, path, "G1", b"one") == "Success", "protect2")
    send_part(address, path, "G2", b"second")
    expect(protect2(backup, path, "G2", b"second", uniqueKey="G2;crc32=00000001") ==
           "ChecksumMismatch", "a wrong checksum")
    send_part(address, path, "G2", b"second")
    expect(protect2(backup, path, "G2", b"second", isDelta=1) == "InvalidBaseline", "a baseline")
    expect(protect2(backup, path, "G2", b"second") == "Success", "protect2")
    send_part(address, path, "G3", b"old way")
    old = dict(systemName="iMac", path="\\\\Data\\docs\\", fileName="b.txt", uniqueId="G3",
               sessionKey="K", localTime="2026-01-01T00:00:00.00", originalFileSizeInBytes=7, **USER)
    expect(backup.ProtectFile(serverPath=path + "G3", **old) == "Success", "ProtectFile")
    expect("InvalidPath" in fault_of(backup.ProtectFile, serverPath="/etc/passwd", **old),
           "a path of somebody else")


def check_browsing(backup, browse):
    expect(browse.GetAccountSystems(**USER).systems.SystemInfo[0].SystemName == "iMac", "a system")
    listing = browse.GetAccountFilesAndFolders(systemName="iMac", path="/home/zoë",
                                               sortField="Name", startIndex=0, pageSize=10, **USER)
    (file,) = listing.items.FileInfo
    expect(listing.GetAccountFilesAndFoldersResult.Code == "Success", f"{listing}")
    expect((file.Name, file.Size, file.Versions) == ("a.txt", "6", "2"), f"{file}")
    found = browse.SearchFilesEx(fileName="B.TXT", startIndex=0, pageSize=10, **USER)
    expect(found.items.FileInfo[0].Path == "/Data/docs", f"{found}")
    versions = browse.GetFileVersions(fileID=file.FileID, **USER).fileVersions.FileVersion
    expect([version.Size for version in versions] == ["6", "3"], f"{versions}")
    data = backup.getMetaDataAboutFilesToRecover(strArrInp=versions[1].VersionID, uName=NAME)
    expect(data.files.FileMetaData[0].Checksum == f"{zlib.crc32(b'one'):08x}", f"{data}")
    expect(backup.DeleteFilesInBulk(uName=NAME, fileListId=versions[1].FileListID) == "true",
           "a deletion")
    expect(browse.GetAccountSystems(userName=NAME, password="no").GetAccountSystemsResult.Code ==
           "InvalidUserNameOrPassword", "a wrong password")


def part(address, ticket, version, **more):
    headers = {"X-UserName": base64.b64encode(NAME.encode()).decode(), "X-Ticket": ticket,
               "X-VersionID": version, "X-Offset": "0", "X-Length": "100", **more}
    request = urllib.request.Request(f"{address}/DownloadFilePart", headers=headers)
    with urllib.request.urlopen(request) as answer:
        return answer.headers, answer.read()


def check_recovery(address, account, backup, browse):
    given = backup.GetRestoreTicket(**USER)
    expect(int(given.SecondsToLive) > 0, f"{given}")
    expect("wrong" in fault_of(backup.GetRestoreTicket, userName=NAME, password="no"),
           "a ticket for a wrong password")
    file = browse.GetAccountFilesAndFolders(systemName="iMac", path="/Data/docs", startIndex=0,
                                            pageSize=1, **USER).items.FileInfo[0]
    version = browse.GetFileVersions(fileID=file.FileID,
                                     **USER).fileVersions.FileVersion[0].VersionID
    headers, content = part(address, given.Ticket, version)
    expect(content == b"old way", f"{content}")
    expect(int(headers["X-Checksum"], 16) == zlib.crc32(content), f"{headers}")
    expect(part(address, "x", version)[0]["X-Reason"] == "TicketRefused", "another ticket")
    expect(account.ChangePassword(newPassword="new", **USER) == "Success", "another password")
    expect(part(address, given.Ticket, version)[0]["X-Reason"] == "TicketRefused",
           "the ticket of an old password")
    expect(account.ChangePassword(userName=NAME, password="new", newPassword=PASSWORD) ==
           "Success", "the password of before")


def check_deletion(backup):
    begun = backup.BeginDeleteFolders(systemName="iMac", path="/home/zoë", **USER)
    expect(begun.BeginDeleteFoldersResult.Code == "Success", f"{begun}")
    process = {"processGuid": begun.ProcessGuid, **USER}
    while True:
        state = backup.CheckDeleteFolders(**process)
        expect(state.CheckDeleteFoldersResult.Code == "Success", f"{state}")
        if state.ProcessIsCompleted == "true":
            break
    backup.BeginCancelDeleteFolders(**process)
    expect(backup.BeginDeleteFolders(systemName="iMac", path="/home/zoë", **USER)
           .BeginDeleteFoldersResult.Code == "NoSuchFolder", "the folder must be gone")


def check_undeletion(backup):
    which = {"systemName": "iMac", "path": "/home/zoë", "since": "", **USER}
    gone = backup.GetDeletedFiles(startIndex=0, pageSize=1, **which)
    expect(gone.Code == "Success" and int(gone.TotalCount) > 0, f"{gone}")
    expect(gone.files.DeletedFile[0].Path.startswith("/home/zoë"), f"{gone}")
    expect(int(gone.GraceSeconds) == 7 * 86400, f"{gone}")
    expect("wrong" in fault_of(backup.UndeleteFiles, userName=NAME, password="no"),
           "nothing comes back for a wrong password")
    expect("since" in fault_of(backup.UndeleteFiles, **{**which, "since": "soon"}), "no moment")
    later = backup.UndeleteFiles(**{**which, "since": "99999999999"})
    expect(later.Undeleted == "0", f"{later}")
    back = backup.UndeleteFiles(**which)
    expect(back.Undeleted == gone.TotalCount, f"{back}")
    expect(back.UndeletedSize == gone.TotalSize, f"{back}")
    expect((back.Remaining, back.Left) == ("0", "0"), f"{back}")


def check_reporting(monitoring, report):
    token = {"userName": NAME, "authToken": "zeep-token", "systemName": "iMac"}
    expect(monitoring.GetSettings(**token).IsEnabled == "true", "GetSettings")
    expect(monitoring.LogEvent(eventType="BackupEnded", **token) == "Success", "LogEvent")
    expect("InvalidAuthenticationTokenFault" in
           fault_of(monitoring.LogEvent, eventType="x", **{**token, "authToken": "other"}),
           "a wrong token")
    expect(report.SendBackupSummaryReport(machineName="iMac", numberOfFilesBackedUp="3", **USER) ==
           "Success", "a summary")
    expect(report.sendEmail(strToAddress="a@b.example", strFromAddress="c@d.example",
                            strSubject="Grüße", strBody="x", blnIsHtmlFormat="0") == "true",
           "an e-mail")
    expect(report.sendEmail(strToAddress="nobody", strFromAddress="c@d.example", strSubject="",
                            strBody="", blnIsHtmlFormat="0") == "false", "no address")


def main():
    address = sys.argv[1]
    account, backup, browse, monitoring, report = services = [
        Service(address, name + "Service")
        for name in ("Account", "Backup", "Browse", "Monitoring", "Report")]
    check_accounts(account)
    check_backup(address, backup)
    check_browsing(backup, browse)
    check_recovery(address, account, backup, browse)
    check_deletion(backup)
    check_undeletion(backup)
    check_reporting(monitoring, report)
    left = set().union(*(service.methods() for service in services)) - called
    expect(not left, f"nothing called {left}")
    print("every method answered as expected")


main()
