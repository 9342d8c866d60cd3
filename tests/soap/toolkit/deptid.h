// The operation, for the toolkit's generator, which reads its directives only without a blank in front.
// clang-format off
//gsoap deptid service name: DepartmentId
//gsoap deptid service style: rpc
//gsoap deptid service encoding: http://www.w3.org/2003/05/soap-encoding
//gsoap deptid service namespace: http://velun.example/ns/active/deptid
struct deptid__CheckUserPasswordResponse {
    bool result;
};
int deptid__CheckUserPassword(char* username, char* domain, char* type, char* password,
                              struct deptid__CheckUserPasswordResponse& response);
